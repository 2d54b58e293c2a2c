#include "logger/tracer.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/recordingWriter.h"

namespace {

class ThrowingWriter : public IWriter {
  public:
    void Update(const std::string&) override { throw std::runtime_error("disk full"); }
};

}  // namespace

TEST(TracerTest, LineIsZeroPaddedLocalTimeSourceCutToEightAndMessage) {
    auto cut = std::make_shared<RecordingWriter>();
    auto whole = std::make_shared<RecordingWriter>();
    Tracer(std::string("EXT->AGT-LONG"), cut).WriteEntry("Packet is forwarded");
    Tracer(std::string("abc"), whole).WriteEntry("");

    EXPECT_EQ(cut->messages("EXT->AGT"), std::vector<std::string>{"Packet is forwarded"});
    EXPECT_EQ(whole->messages("abc"), std::vector<std::string>{""});
}

TEST(TracerTest, WriterGetsALinePerAttachmentUntilOneDetachAndFailuresStayInside) {
    auto twice = std::make_shared<RecordingWriter>();
    auto once = std::make_shared<RecordingWriter>();
    Tracer tracer("SRC", twice);
    tracer.Attach(once);
    tracer.Attach(twice);
    tracer.WriteEntry("first");
    tracer.Detach(twice);
    tracer.Attach(std::make_shared<ThrowingWriter>());

    EXPECT_NO_THROW(tracer.WriteEntry("second"));
    EXPECT_EQ(twice->messages("SRC"), (std::vector<std::string>{"first", "first"}));
    EXPECT_EQ(once->messages("SRC"), (std::vector<std::string>{"first", "second"}));
}
