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

TEST(TracerTest, LineHasZeroPaddedLocalTimeSourceAndMessage) {
    auto writer = std::make_shared<RecordingWriter>();
    Tracer(std::string("HOST-APP"), writer).WriteEntry("Check for messagehost update");

    ASSERT_EQ(writer->lines().size(), 1u);
    EXPECT_TRUE(std::regex_match(
        writer->lines()[0],
        std::regex(
            R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2} \| HOST-APP \| Check for messagehost update)")))
        << writer->lines()[0];
    EXPECT_TRUE(std::regex_match(Tracer::GetCurrentDateTime(),
                                 std::regex(R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2})")));
}

TEST(TracerTest, SourceIsCutToEightCharactersAndShortSourcesStayShort) {
    auto writer = std::make_shared<RecordingWriter>();
    Tracer(std::string("EXT->AGT-LONG"), writer).WriteEntry("x");
    Tracer(std::string("abc"), writer).WriteEntry("");

    const auto lines = writer->lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(19), " | EXT->AGT | x");
    EXPECT_EQ(lines[1].substr(19), " | abc | ")
        << "an empty message ends the line after the separator";
}

TEST(TracerTest, WriterAttachedTwiceGetsEachLineTwiceAndOneDetachRemovesBoth) {
    auto twice = std::make_shared<RecordingWriter>();
    auto once = std::make_shared<RecordingWriter>();
    Tracer tracer("SRC", twice);
    tracer.Attach(once);
    tracer.Attach(twice);

    tracer.WriteEntry("first");
    EXPECT_EQ(twice->lines().size(), 2u);
    EXPECT_EQ(once->lines().size(), 1u);

    tracer.Detach(twice);
    tracer.Detach(std::make_shared<RecordingWriter>());
    tracer.WriteEntry("second");
    EXPECT_EQ(twice->lines().size(), 2u);
    EXPECT_EQ(once->lines().size(), 2u);
}

TEST(TracerTest, ThrowingWriterNeverReachesTheCallerAndEndsThatLine) {
    auto before = std::make_shared<RecordingWriter>();
    auto after = std::make_shared<RecordingWriter>();
    Tracer tracer("SRC", before);
    tracer.Attach(std::make_shared<ThrowingWriter>());
    tracer.Attach(after);

    EXPECT_NO_THROW(tracer.WriteEntry("lost"));
    EXPECT_EQ(before->lines().size(), 1u);
    EXPECT_TRUE(after->lines().empty());
    EXPECT_NO_THROW(Tracer("none").WriteEntry("no writer"));
}
