#include "logger/dailyFileWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <iomanip>
#include <regex>
#include <sstream>

#include "platform/utils.h"

namespace fs = std::filesystem;

namespace {

// The log holds every message in full, so only its owner may read it. Folder and files are
// created with these modes rather than changed afterwards, which would leave a moment in which
// others could open them; an existing folder or file keeps its mode.
constexpr mode_t kPrivateFolderMode = S_IRWXU;
constexpr mode_t kPrivateFileMode = S_IRUSR | S_IWUSR;

// Missing parents get the usual mode; only the log folder itself is private.
void createPrivateFolder(const fs::path& folder) {
    fs::create_directories(folder.parent_path());
    mkdir(folder.c_str(), kPrivateFolderMode);
}

// Leaves the file for the stream to append to; a failure shows up as the stream's failed open.
void createPrivateFile(const fs::path& file) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kPrivateFileMode);
    if (descriptor != -1) {
        close(descriptor);
    }
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
    const fs::path path = PrepareLogPath();
    createPrivateFile(path);
    std::ofstream file(path, std::ios::out | std::ios::app);
    file << line << "\n" << std::flush;
}

void DailyFileWriter::CreateLogDirectory() const {
    try {
        createPrivateFolder(logFolder);
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
    if (!fs::exists(fs::status(logFolder))) {
        CreateLogDirectory();
    }
    const std::wstring stem = filePrefix + GetCurrentDate();
    // The prefix and date go into the pattern unescaped.
    const std::vector<fs::path> todays = GetLogFilesOrderedByDate(stem + L".*\\.log");
    if (todays.empty()) {
        return fs::path(logFolder) / (stem + L".log");
    }
    const fs::path& newest = todays.back();
    if (fs::file_size(newest) < maxFileSize) {
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
    std::vector<fs::path> files;
    try {
        if (!fs::is_directory(fs::status(logFolder))) {
            return files;
        }
        const std::wregex expression(pattern);
        for (const fs::directory_entry& entry : fs::directory_iterator(logFolder)) {
            if (fs::is_regular_file(fs::status(entry.path())) &&
                std::regex_match(entry.path().filename().wstring(), expression)) {
                files.push_back(entry.path());
            }
        }
        // Times are read at each comparison; for about ten files that is cheap enough.
        std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) {
            return fs::last_write_time(a) < fs::last_write_time(b);
        });
    } catch (...) {
        // Whatever was found so far is still worth returning.
    }
    return files;
}

void DailyFileWriter::DeleteExtraLogs() {
    lastDeleteTick = GetTickCount();
    try {
        // Deliberately without the prefix: every ".log" file in the folder counts.
        const std::vector<fs::path> files = GetLogFilesOrderedByDate(L".*\\.log");
        if (files.size() <= maxLogFiles) {
            return;
        }
        const size_t extra = files.size() - maxLogFiles;
        for (size_t i = 0; i < extra; ++i) {
            fs::remove(files[i]);
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
