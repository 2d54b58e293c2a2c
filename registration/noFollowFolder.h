#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A folder held open by a descriptor. Every name is looked up in it, and one that is a symbolic
// link is never followed (a FolderWalk decides which links to follow), so a link planted in the
// folder, or a folder renamed meanwhile, cannot lead a write elsewhere. Failures leave errno set.
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

    bool isOpen() const { return descriptor >= 0; }
    int fd() const { return descriptor; }

    // The folder of that name in this one; not open when it is missing, a link or no folder.
    NoFollowFolder child(const std::string& name) const;
    // The folder this one is in.
    NoFollowFolder parent() const;
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
    // The text of the symbolic link of that name.
    bool linkText(const std::string& name, std::string& text) const;
    // Every name in the folder; complete is false when the folder could not be read to its end.
    std::vector<std::string> entries(bool& complete) const;

  private:
    explicit NoFollowFolder(int descriptor) : descriptor(descriptor) {}

    int descriptor = -1;
};
