#pragma once

#include <unistd.h>  // mkdtemp on macOS; glibc declares it in <cstdlib>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

// A fresh folder under /tmp for one test, removed with everything in it afterwards.
class TempDir {
  public:
    TempDir() {
        std::string pattern = "/tmp/quorvel-dir-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};
