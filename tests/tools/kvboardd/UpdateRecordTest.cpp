#include "tools/kvboardd/UpdateRecord.h"

#include <gtest/gtest.h>

#include "base/Report.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace {

using namespace KvNBoardService;
using State = UpdateRecord::State;

constexpr const char* runningText =
    R"({"format": "korvel-update", "version": 1, "state": "running", "address": "HCN[4711]/FIRMWARE", )"
    R"("firmwareType": 7, "newVersion": "0x0400010200020000", "errors": ""})"
    "\n";

std::string problemOf(const std::string& text)
{
    UpdateRecord record;
    std::string problem;
    EXPECT_FALSE(readUpdateRecord(text, record, problem)) << text;
    return problem;
}

/** The text with one part replaced. */
std::string with(const std::string& part, const std::string& replacement)
{
    std::string text = runningText;
    return text.replace(text.find(part), part.size(), replacement);
}

TEST(UpdateRecordTest, WithoutAnUpdateThereIsOnlyTheState)
{
    const std::string text = updateRecordText({});
    EXPECT_EQ(text, "{\"format\": \"korvel-update\", \"version\": 1, \"state\": \"idle\"}\n");
    UpdateRecord record;
    std::string problem;
    EXPECT_TRUE(readUpdateRecord(text, record, problem)) << problem;
    EXPECT_EQ(record.state, State::Idle);
}

TEST(UpdateRecordTest, ARecordIsWrittenAndReadBack)
{
    const UpdateRecord record = {State::Running, "HCN[4711]/FIRMWARE", 7, 0x0400010200020000u, {}};
    EXPECT_EQ(updateRecordText(record), runningText);
    KvCErrorListPool errors;
    KV_REPORT(errors, BoardFirmwareTypeUnknown, "Image::open", 14);
    for (const State state : {State::Running, State::Verified, State::Failed}) {
        const UpdateRecord written = {state, "HCN[4711]/\"x\"", 13, ~KvUInt64(0), errors.serialize()};
        UpdateRecord read;
        std::string problem;
        ASSERT_TRUE(readUpdateRecord(updateRecordText(written), read, problem)) << problem;
        EXPECT_EQ(read.state, state);
        EXPECT_EQ(read.address, written.address);
        EXPECT_EQ(read.firmwareType, written.firmwareType);
        EXPECT_EQ(read.newVersion, written.newVersion);
        EXPECT_EQ(read.errors, written.errors);
    }
}

TEST(UpdateRecordTest, WhatIsWrongIsSaidWithItsPlace)
{
    EXPECT_EQ(problemOf(with("korvel-update", "korvel-board")),
              "at \"/format\": \"korvel-board\" instead of the text \"korvel-update\"");
    EXPECT_EQ(problemOf(with("\"version\": 1", "\"version\": 2")),
              "at \"/version\": another number instead of the number 1");
    EXPECT_EQ(problemOf(with("\"version\": 1", "\"version\": \"1\"")),
              "at \"/version\": a text instead of the number 1");
    EXPECT_EQ(problemOf(with("running", "walking")),
              "at \"/state\": \"walking\" instead of \"idle\", \"running\", \"verified\" or \"failed\"");
    EXPECT_EQ(problemOf(with("HCN[4711]/FIRMWARE", "")), "at \"/address\": \"\" instead of the address of an item");
    for (const char* type : {"-1", "4", "14", "4294967296", "0.5"})
        EXPECT_EQ(problemOf(with("\"firmwareType\": 7", std::string("\"firmwareType\": ") + type)),
                  "at \"/firmwareType\": another number instead of the number of a firmware type");
    for (const char* version : {"4.0.1b2", "0x040001020002000", "0x04000102000200000", "0x040001020002000g",
                                "0x-400010200020000", "0y0400010200020000"})
        EXPECT_EQ(problemOf(with("0x0400010200020000", version)),
                  std::string("at \"/newVersion\": \"") + version + "\" instead of 0x and 16 hexadecimal digits");
    for (const char* block : {"0", "0g", "-1", "00", "00000002000000000", "0000000100000001"})
        EXPECT_EQ(
            problemOf(with("\"errors\": \"\"", "\"errors\": \"" + std::string(block) + "\"")),
            std::string("at \"/errors\": \"") + block + "\" instead of an error list block in hexadecimal digits");
    EXPECT_EQ(problemOf(with("\"firmwareType\"", "\"firmware\"")), "at \"/firmware\": unknown member");
    EXPECT_EQ(problemOf(with("\"firmwareType\": 7", "\"state\": \"idle\"")),
              "at \"/state\": the member is there twice");
    EXPECT_EQ(problemOf(with("\"firmwareType\": 7, ", "")), "at \"\": the member \"firmwareType\" is missing");
    EXPECT_EQ(problemOf("{}"), "at \"\": the member \"format\" is missing");
}

TEST(UpdateRecordTest, OtherJsonIsRefused)
{
    EXPECT_EQ(problemOf("[]"), "at \"\": an array instead of an object");
    EXPECT_EQ(problemOf("7"), "at \"\": a number instead of an object");
    EXPECT_EQ(problemOf("\"x\""), "at \"\": a text instead of an object");
    EXPECT_EQ(problemOf("null"), "at \"\": null instead of an object");
    EXPECT_EQ(problemOf(with("\"running\"", "{}")),
              "at \"/state\": an object instead of \"idle\", \"running\", \"verified\" or \"failed\"");
    EXPECT_EQ(problemOf(with("\"running\"", "[]")),
              "at \"/state\": an array instead of \"idle\", \"running\", \"verified\" or \"failed\"");
    EXPECT_EQ(problemOf(with("\"running\"", "true")),
              "at \"/state\": true or false instead of \"idle\", \"running\", \"verified\" or \"failed\"");
}

TEST(UpdateRecordTest, ARecordThatIsCutAnywhereIsRefused)
{
    const std::string whole = runningText;
    for (std::size_t size = 0; size + 1 < whole.size(); ++size)
        EXPECT_NE(problemOf(whole.substr(0, size)), "") << size;
}

}  // namespace
