#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "logger/active.h"
#include "logger/iWriter.h"

// Appends each line to prefix + YYYY_MM_DD.log (then _1.log, _2.log, ... once a file is full)
// in the log folder and keeps only the newest maxLogFiles ".log" files there. It writes only into
// a folder and regular files of this user's own, reached through no link, and deletes nowhere
// else (see openPrivateFolder and openPrivateFileToAppend). Update may be called from any thread
// and only queues the line; all file work runs on the writer's worker.
// The other operations belong to that worker: call them only while no line is queued.
class DailyFileWriter : public IWriter {
  public:
    // Creates the folder and runs a first retention pass on the calling thread. The retention
    // interval is in raw GetTickCount ticks despite its name.
    DailyFileWriter(const std::wstring& logFolder, size_t maxLogFiles, size_t maxFileSize,
                    long deleteIntervalMs, const std::wstring& filePrefix);
    // Writes every line queued so far, then stops the worker.
    ~DailyFileWriter() override;

    DailyFileWriter(const DailyFileWriter&) = delete;
    DailyFileWriter& operator=(const DailyFileWriter&) = delete;

    // Never throws; a line that cannot be queued is dropped.
    void Update(const std::string& line) override;

    // Blocks until every line queued before the call is in its file, for a host that ends
    // while something else still holds the writer. Never throws; never call it from the worker.
    void Flush();

    // Today's local date as YYYY_MM_DD.
    static std::wstring GetCurrentDate();
    // The file the next line goes to, decided from what is on disk now.
    std::filesystem::path PrepareLogPath() const;
    // The N of a "YYYY_MM_DD_N.log" name for a one-digit N; 0 otherwise. Never throws.
    static int GetFileNum(const std::string& name);
    // Regular files directly in the folder whose whole name matches, oldest write first.
    // Never throws.
    std::vector<std::filesystem::path> GetLogFilesOrderedByDate(const std::wstring& pattern) const;
    // Deletes the oldest ".log" files beyond maxLogFiles, whatever their prefix. Never throws.
    void DeleteExtraLogs();
    // The job that Update queues: a retention pass when one is due, then the line appended to
    // the file that PrepareLogPath names, opened and closed for this line alone.
    void WriteLine(const std::string& line);

  private:
    void CreateLogDirectory() const;
    // Creates the folder when it is missing, then opens it as openPrivateFolder does.
    int OpenLogFolder() const;
    // PrepareLogPath within the folder open as `folder` (-1: none).
    std::filesystem::path PrepareLogPath(int folder) const;
    void DeleteExtraLogsEvery(long interval);
    static bool hasNMilliSecPassed(uint64_t start, long n);

    size_t maxFileSize;
    size_t maxLogFiles;
    std::wstring logFolder;
    std::wstring filePrefix;
    long deleteIntervalMs;
    uint64_t lastDeleteTick = 0;  // worker only, after construction
    Active active;                // last, so that it stops before the members its jobs use go
};
