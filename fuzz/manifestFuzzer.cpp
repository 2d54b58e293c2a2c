// Judges each input as a manifest of either family and reads the executable it registers, as
// status and uninstall do with a manifest's bytes, then puts the verdict into JSON as status
// does. Built by the fuzz preset with the address and undefined-behaviour sanitizers, so any
// crash, stack overflow (deep nesting), read past a buffer or leak fails the run.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "manifest.h"

namespace {

// A sound verdict names an absolute path and at least one extension, every one well-formed; what
// the path names is judged apart, as the executable's check.
bool isConsistent(const Manifest::Verdict& verdict) {
    return !verdict.problems.empty() || (verdict.path.compare(0, 1, "/") == 0 &&
                                         !verdict.ids.empty() && verdict.malformedIds.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const Family family : {Family::Chrome, Family::Firefox}) {
        const Manifest::Verdict verdict = Manifest::judge(text, family);
        const nlohmann::json entry = {
            {"path", verdict.path}, {"ids", verdict.ids}, {"problems", verdict.problems}};
        if (!isConsistent(verdict) ||
            entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).empty()) {
            std::abort();
        }
    }
    static_cast<void>(Manifest::registeredPath(text));
    return 0;
}
