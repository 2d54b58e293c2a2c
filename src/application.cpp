#include "application.h"

#include <string>

#include "communication/agentPortMac.h"
#include "communication/extPort.h"
#include "core/forwarder.h"
#include "core/updater.h"
#include "logger/dailyFileWriter.h"
#include "logger/tracer.h"
#include "platform/utils.h"

namespace SourceAbbr {
static const char* const HOST_APP = "HOST-APP";
}  // namespace SourceAbbr

namespace {

// Deliberately byte by byte with sign extension, no UTF-8 decoding: ASCII paths are
// unchanged, which is what the log folder holds in practice.
std::wstring widen(const std::string& narrow) {
    std::wstring wide;
    wide.reserve(narrow.size());
    for (char byte : narrow) {
        wide.push_back(static_cast<wchar_t>(static_cast<signed char>(byte)));
    }
    return wide;
}

}  // namespace

Application::Application() {
    try {
        const std::wstring logFolder = widen(getLogsDir());
        writer =
            std::make_shared<DailyFileWriter>(logFolder, 10, 20000000, 3600000, L"messagehost_");
        tracer = std::make_shared<Tracer>(SourceAbbr::HOST_APP, writer);
        extPort = std::make_shared<ExtPort>(writer);
        agentPort = std::make_shared<AgentPort>(writer);
    } catch (...) {
        // Nothing can log yet; Start sees the empty members and does not run.
    }
}

Application::~Application() {
    worker.stop();
    if (writer) {
        writer->Flush();
    }
}

void Application::Start() {
    if (!writer || !tracer || !extPort || !agentPort) {
        return;
    }
    try {
        Updater updater(writer);
        tracer->WriteEntry(std::string("Quorvel native message host is started, version: ") +
                           Version);
        Forwarder forwarder(extPort, agentPort, writer, "EXT->AGT");
        updater.Start([this] { OnUpdateAvailable(); });
        extPort->WaitForCancel();
        agentPort->Cancel();
        tracer->WriteEntry("Quorvel native message host is stopped.");
    } catch (...) {
    }
}

void Application::OnUpdateAvailable() {
    tracer->WriteEntry("Updates are available, terminate messagehost.");
    extPort->Cancel();
}
