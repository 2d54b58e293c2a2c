#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

// Standard input becomes a file holding exactly these bytes, read from its start, so that the
// last read meets the end of input instead of waiting. False when it cannot be done.
inline bool replaceStandardInput(const std::string& bytes) {
    std::FILE* file = std::tmpfile();
    const bool ready = file != nullptr &&
                       std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
                       std::fflush(file) == 0 && dup2(fileno(file), STDIN_FILENO) != -1;
    if (file != nullptr) {
        std::fclose(file);
    }
    // The seek drops what the stream still buffers of an earlier input.
    const bool rewound = ready && std::fseek(stdin, 0, SEEK_SET) == 0;
    std::clearerr(stdin);
    return rewound;
}
