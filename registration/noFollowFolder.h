#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A folder held open by a descriptor. Every name is looked up in it, and one that is a symbolic
// link is never followed, so a link planted below the folder, or a folder renamed meanwhile,
// cannot lead a write elsewhere. Failures leave errno set.
class NoFollowFolder {
  public:
    NoFollowFolder() = default;
    ~NoFollowFolder();
    NoFollowFolder(NoFollowFolder&& other) noexcept;
    NoFollowFolder& operator=(NoFollowFolder&& other) noexcept;
    NoFollowFolder(const NoFollowFolder&) = delete;
    NoFollowFolder& operator=(const NoFollowFolder&) = delete;

    // The folder at the path ("" for "/"), links in the path followed: the caller trusts it.
    static NoFollowFolder open(const std::string& path);

    // The names of the folders from root (a path, "" for "/") down to folder, a path below it.
    static std::vector<std::string> namesBelow(const std::string& root, const std::string& folder);

    // The folder root, then each one named below it as far as they exist and are folders: the
    // last one is the deepest reached, and errno says why the next one could not be opened.
    static std::vector<NoFollowFolder> openChain(const std::string& root,
                                                 const std::vector<std::string>& names);

    bool isOpen() const { return descriptor >= 0; }
    int fd() const { return descriptor; }

    // The folder of that name in this one; not open when it is missing, a link or no folder.
    NoFollowFolder child(const std::string& name) const;
    bool makeFolder(const std::string& name, mode_t mode) const;
    bool removeFolder(const std::string& name) const;
    bool removeFile(const std::string& name) const;
    // A new file holding the text, never one that exists or a link; mode whatever the umask.
    bool createFile(const std::string& name, const std::string& text, mode_t mode) const;
    // Writes a temporary file and renames it to the name, so a reader sees the old file or the
    // new one, never part of one; mode whatever the umask.
    bool replaceFile(const std::string& name, const std::string& text, mode_t mode) const;
    bool setMode(mode_t mode) const;
    bool status(struct stat& status) const;
    // The entry of that name as it is, a link not followed.
    bool statusOf(const std::string& name, struct stat& status) const;
    // Every name in the folder; complete is false when the folder could not be read to its end.
    std::vector<std::string> entries(bool& complete) const;

  private:
    explicit NoFollowFolder(int descriptor) : descriptor(descriptor) {}

    int descriptor = -1;
};
