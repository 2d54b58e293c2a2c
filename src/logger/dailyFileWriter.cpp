#include "logger/dailyFileWriter.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <iomanip>
#include <memory>
#include <regex>
#include <sstream>
#include <system_error>

#include "platform/utils.h"

namespace fs = std::filesystem;

namespace {

// Owns a descriptor (or -1) and closes it at the end of the scope.
class ScopedDescriptor {
  public:
    explicit ScopedDescriptor(int descriptor) : descriptor(descriptor) {}
    ~ScopedDescriptor() {
        if (descriptor != -1) {
            close(descriptor);
        }
    }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;

    int get() const { return descriptor; }

  private:
    const int descriptor;
};

// The status of a file of the open folder, the file itself if it is a link. Throws as the
// filesystem library does, so that a failing query ends a listing or a job alike.
struct stat statusIn(int folder, const fs::path& file) {
    struct stat status {};
    if (fstatat(folder, file.filename().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot query " + file.string());
    }
    return status;
}

// Regular files directly in the open folder whose whole name matches, as paths in `folderPath`;
// a link is no log file of the folder, whatever it names. Throws; what was found stays in `files`.
void listLogFiles(int folder, const fs::path& folderPath, const std::wregex& expression,
                  std::vector<fs::path>& files) {
    // The listing owns its own descriptor, so that the folder's stays open for the queries.
    const int listed = fcntl(folder, F_DUPFD_CLOEXEC, 0);
    DIR* const listing = listed == -1 ? nullptr : fdopendir(listed);
    if (listing == nullptr) {
        if (listed != -1) {
            close(listed);
        }
        throw std::system_error(errno, std::generic_category(),
                                "cannot list " + folderPath.string());
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> closing(listing, closedir);
    for (const dirent* entry; (entry = readdir(listing)) != nullptr;) {
        struct stat status {};
        if (fstatat(folder, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode) &&
            std::regex_match(fs::path(entry->d_name).wstring(), expression)) {
            files.push_back(folderPath / entry->d_name);
        }
    }
}

// The files that GetLogFilesOrderedByDate gives, listed in the open folder (none for -1).
// Never throws.
std::vector<fs::path> logFilesOldestFirst(int folder, const fs::path& folderPath,
                                          const std::wstring& pattern) {
    std::vector<fs::path> files;
    if (folder == -1) {
        return files;
    }
    try {
        listLogFiles(folder, folderPath, std::wregex(pattern), files);
        // Times are read at each comparison; for about ten files that is cheap enough.
        std::sort(files.begin(), files.end(), [folder](const fs::path& a, const fs::path& b) {
            return lastWriteNanoseconds(statusIn(folder, a)) <
                   lastWriteNanoseconds(statusIn(folder, b));
        });
    } catch (...) {
        // Whatever was found so far is still worth returning.
    }
    return files;
}

// Hosts appending to one file take turns, so that none reads the last byte of a line that
// another is still writing. A turn held for long (by a stopped host, say) is waited for about
// 100 ms at most; the line then goes without it. The turn ends when the file is closed.
void awaitTurn(int file) {
    constexpr int kMaxWaits = 100;
    for (int waits = 0; waits < kMaxWaits && flock(file, LOCK_EX | LOCK_NB) != 0; ++waits) {
        Sleep(1);
    }
}

// One write for the line and its end, on a file opened for appending, so that the lines of
// hosts logging at once never mix. A file that ends inside a line (a host killed in the middle
// of one, a full disk) gets the line's end first, so that no line is glued to a cut one.
void appendLine(int folder, const fs::path& file, const std::string& line) {
    const ScopedDescriptor output(
        folder == -1 ? -1 : openPrivateFileToAppend(folder, file.filename().string()));
    if (output.get() == -1) {
        return;
    }
    awaitTurn(output.get());
    struct stat status {};
    if (fstat(output.get(), &status) != 0) {
        return;
    }
    char last = '\n';
    if (status.st_size > 0 && pread(output.get(), &last, 1, status.st_size - 1) != 1) {
        return;
    }
    char end = '\n';
    iovec parts[] = {{&end, 1}, {const_cast<char*>(line.data()), line.size()}, {&end, 1}};
    const int skipped = last == '\n' ? 1 : 0;
    // A write cut short is left cut: the next line ends it.
    const ssize_t written = writev(output.get(), parts + skipped, 3 - skipped);
    static_cast<void>(written);
}

}  // namespace

DailyFileWriter::DailyFileWriter(const std::wstring& logFolder, size_t maxLogFiles,
                                 size_t maxFileSize, long deleteIntervalMs,
                                 const std::wstring& filePrefix)
    : maxFileSize(maxFileSize),
      maxLogFiles(maxLogFiles),
      logFolder(logFolder),
      filePrefix(filePrefix),
      deleteIntervalMs(deleteIntervalMs) {
    CreateLogDirectory();
    DeleteExtraLogs();
}

DailyFileWriter::~DailyFileWriter() {
    active.stop();
}

void DailyFileWriter::Update(const std::string& line) {
    try {
        // The one copy of the line that the job needs. A plain [line] capture would hold it
        // const, and handing the job to the queue would then copy it once more.
        active.send([this, queued = line] { WriteLine(queued); });
    } catch (...) {
    }
}

void DailyFileWriter::Flush() {
    try {
        auto written = std::make_shared<std::promise<void>>();
        std::future<void> done = written->get_future();
        active.send([written] { written->set_value(); });
        done.wait();
    } catch (...) {
    }
}

void DailyFileWriter::WriteLine(const std::string& line) {
    DeleteExtraLogsEvery(deleteIntervalMs);
    // Opened and closed for every line, so nothing stays open across date changes or deletions.
    const ScopedDescriptor folder(OpenLogFolder());
    appendLine(folder.get(), PrepareLogPath(folder.get()), line);
}

int DailyFileWriter::OpenLogFolder() const {
    if (!fs::exists(fs::status(logFolder))) {
        CreateLogDirectory();
    }
    return openPrivateFolder(fs::path(logFolder).string());
}

void DailyFileWriter::CreateLogDirectory() const {
    try {
        createPrivateFolder(fs::path(logFolder).string());
    } catch (...) {
        // Shows up as a failed open later, which loses the line silently.
    }
}

std::wstring DailyFileWriter::GetCurrentDate() {
    const std::tm local = getLocalTime();
    std::wostringstream date;
    date << std::setfill(L'0') << std::setw(4) << local.tm_year + 1900 << L'_' << std::setw(2)
         << local.tm_mon + 1 << L'_' << std::setw(2) << local.tm_mday;
    return date.str();
}

fs::path DailyFileWriter::PrepareLogPath() const {
    const ScopedDescriptor folder(OpenLogFolder());
    return PrepareLogPath(folder.get());
}

fs::path DailyFileWriter::PrepareLogPath(int folder) const {
    const std::wstring stem = filePrefix + GetCurrentDate();
    // The prefix and date go into the pattern unescaped.
    const std::vector<fs::path> todays = logFilesOldestFirst(folder, logFolder, stem + L".*\\.log");
    if (todays.empty()) {
        return fs::path(logFolder) / (stem + L".log");
    }
    const fs::path& newest = todays.back();
    if (static_cast<uintmax_t>(statusIn(folder, newest).st_size) < maxFileSize) {
        return newest;
    }
    const int next = GetFileNum(newest.filename().string()) + 1;
    return fs::path(logFolder) / (stem + L"_" + std::to_wstring(next) + L".log");
}

int DailyFileWriter::GetFileNum(const std::string& name) {
    try {
        // One digit only, deliberately kept: from _10 on the number reads as 0, so a full _10
        // is followed by _1 and the full files are then written in turn, one line each.
        const std::regex numbered(R"(\d\d\d\d_\d\d_\d\d_?(\d)?\.log)");
        std::smatch match;
        if (std::regex_search(name, match, numbered) && match[1].length() > 0) {
            return std::stoi(match[1].str(), nullptr, 10);
        }
    } catch (...) {
    }
    return 0;
}

std::vector<fs::path> DailyFileWriter::GetLogFilesOrderedByDate(const std::wstring& pattern) const {
    try {
        const ScopedDescriptor folder(openPrivateFolder(fs::path(logFolder).string()));
        return logFilesOldestFirst(folder.get(), logFolder, pattern);
    } catch (...) {
        return {};  // a folder whose name has no narrow form
    }
}

void DailyFileWriter::DeleteExtraLogs() {
    lastDeleteTick = GetTickCount();
    try {
        // Listed and removed within the one folder opened here, so that nothing outside it goes.
        const ScopedDescriptor folder(openPrivateFolder(fs::path(logFolder).string()));
        // Deliberately without the prefix: every ".log" file in the folder counts.
        const std::vector<fs::path> files =
            logFilesOldestFirst(folder.get(), logFolder, L".*\\.log");
        for (size_t i = 0; i + maxLogFiles < files.size(); ++i) {
            if (unlinkat(folder.get(), files[i].filename().c_str(), 0) != 0 && errno != ENOENT) {
                return;  // the files left over are tried again at the next pass
            }
        }
    } catch (...) {
        // The files left over are tried again at the next pass.
    }
}

void DailyFileWriter::DeleteExtraLogsEvery(long interval) {
    if (hasNMilliSecPassed(lastDeleteTick, interval)) {
        DeleteExtraLogs();
    }
}

bool DailyFileWriter::hasNMilliSecPassed(uint64_t start, long n) {
    // Raw ticks, deliberately not converted to milliseconds.
    return GetTickCount() >= start + static_cast<uint64_t>(n);
}
