#pragma once

#include <cstddef>
#include <string>

// Reads a whole file that is no larger than a limit, without ever waiting or reading without
// end: anything but a regular file (a FIFO, a device, a socket, a folder) is judged by its type
// and never opened, and a larger file is judged by its size and never read.
class BoundedFile {
  public:
    // The text of the file name in the folder (a descriptor, or AT_FDCWD for a path), a link
    // followed as a browser would. "" with problem set, a phrase about the file ("it is a FIFO,
    // not a regular file"), when it is not read.
    static std::string read(int folder, const std::string& name, std::size_t limit,
                            std::string& problem);
};
