#include "logger/tracer.h"

#include <memory>
#include <regex>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/recordingWriter.h"

namespace {

class ThrowingWriter : public IWriter {
  public:
    void Update(const std::string&) override { throw std::runtime_error("disk full"); }
};

}  // namespace

TEST(TracerTest, LineIsZeroPaddedLocalTimeSourceCutToEightAndMessage) {
    auto writer = std::make_shared<RecordingWriter>();
    Tracer(std::string("EXT->AGT-LONG"), writer).WriteEntry("Packet is forwarded");
    Tracer(std::string("abc"), writer).WriteEntry("");

    const std::string stamp = R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2} \| )";
    const auto lines = writer->lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "EXT->AGT \\| Packet is forwarded")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + "abc \\| "))) << lines[1];
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
