#include "tools/kvboardd/Image.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "UpdateSupport.h"
#include "tests/support/FailingAllocation.h"

namespace {

using namespace KvNBoardService;
using Bytes = std::vector<unsigned char>;
using Codes = std::vector<KvUInt32>;
using Verification = Image::Verification;

constexpr KvUInt32 userFirmware = 0;
constexpr KvUInt32 userFpga = 2;

/** A board HCN[4711] with FIRMWARE and FPGAs, whose fields a test adds. */
class ImageTest : public testing::Test
{
protected:
    ImageTest() { set("FIRMWARE/VERSION", KvCVersion(3, 1, 2, 2, 4, 7)); }

    template <class T>
    void set(const char* address, const T& value)
    {
        KvCErrorListPool errors;
        m_board->createParameter<T>(errors, at(address), value, "", false, 0, nullptr, nullptr, nullptr);
        ASSERT_EQ(errors.getErrorCount(), 0u);
    }
    std::unique_ptr<Image> open(const Bytes& bytes, KvUInt32 type = userFirmware, const char* item = "FIRMWARE",
                                KvUInt64 failAt = MemoryImage::never)
    {
        m_errors.clear();
        return Image::open(m_errors, std::make_unique<MemoryImage>(bytes, failAt), type, *m_board,
                           *m_board->getItem(at(item)));
    }
    void expectRefused(const Bytes& bytes, KvUInt32 code, const char* text, KvUInt32 type = userFirmware)
    {
        EXPECT_EQ(open(bytes, type), nullptr);
        ASSERT_NE(m_errors.getErrorCount(), 0u);
        const KvUInt32 last = m_errors.getErrorCount() - 1;
        EXPECT_EQ(m_errors.getErrorCode(last), code);
        EXPECT_STREQ(m_errors.getErrorText(last), text);
    }
    /** An image for FIRMWARE with a version and one more field, or two. */
    template <class T>
    static ImageMaker firmware(const char* field, const T& value)
    {
        ImageMaker maker;
        maker.withVersion("FIRMWARE/VERSION", "4.0").with(field, value);
        return maker;
    }
    void expectHardware(KvUInt32 board, const ImageMaker& maker, bool fits)
    {
        KvCErrorListPool errors;
        m_board->setValue<KvUInt32>(errors, at("HW_COMPATIBILITY_ID"), board);
        ASSERT_EQ(errors.getErrorCount(), 0u);
        EXPECT_EQ(open(maker.image()) != nullptr, fits) << board;
    }

    KvCErrorListPool m_errors;
    std::unique_ptr<KvCInventoryItem> m_board{new KvCInventoryItem(m_errors, KvNInventoryIDs::HCN[4711], nullptr)};
};

TEST_F(ImageTest, TheSampleImageFitsTheSampleBoard)
{
    std::ifstream file(KV_SAMPLES_DIR "/firmware-image.bin", std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    const std::unique_ptr<Board> board = sampleBoard();
    const std::unique_ptr<Image> image = Image::open(m_errors, std::make_unique<MemoryImage>(bytes), userFirmware,
                                                     board->tree(), *board->tree().getItem(at("FIRMWARE")));
    ASSERT_NE(image, nullptr) << m_errors.getErrorText(0);
    EXPECT_STREQ(image->version().getAsString().c_str(), "4.0.1b2");
    EXPECT_EQ(image->contentBytes(), 90000u);
    EXPECT_EQ(image->verify(m_errors), Verification::Good);
    EXPECT_EQ(image->verifiedBytes(), 90000u);
}

TEST_F(ImageTest, FieldsThatAreAbsentCheckNothing)
{
    const auto image = open(ImageMaker().withVersion("FIRMWARE/VERSION", "4.0").image({1, 2, 3}));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->contentBytes(), 3u);
    EXPECT_EQ(image->verify(m_errors), Verification::Good);
    EXPECT_EQ(m_errors.getErrorCount(), 0u);
}

TEST_F(ImageTest, AnImageWithoutASectionIsRefused)
{
    const char* const text = "Update error. The image has no inventory section.";
    for (const std::size_t size : {0u, 1u, 23u, 24u, 25u, 1000u})
        expectRefused(Bytes(size, 'x'), 0x302007, text);
    const Bytes section = ImageMaker().section();
    Bytes junkBehind = {'x'};
    junkBehind.insert(junkBehind.end(), section.begin(), section.end());
    junkBehind.push_back('x');
    expectRefused(junkBehind, 0x302007, text);
}

TEST_F(ImageTest, ASectionAtTheStartHasNoContentInFrontOfIt)
{
    Bytes bytes = firmware<KvUInt32>("FIRMWARE/SIZE", 0).section();
    bytes.insert(bytes.end(), 3000, 'x');
    const auto image = open(bytes);
    ASSERT_NE(image, nullptr) << m_errors.getErrorText(0);
    EXPECT_EQ(image->contentBytes(), 0u);
    EXPECT_EQ(image->verify(m_errors), Verification::Good);
}

TEST_F(ImageTest, ASectionThatIsLongerThanTheImageIsRefused)
{
    Bytes bytes = firmware<KvUInt32>("FIRMWARE/SIZE", 0).section();
    const std::string size = std::to_string(bytes.size());
    const std::string less = std::to_string(bytes.size() - 1);
    bytes.erase(bytes.begin());
    expectRefused(bytes, 0x302008,
                  ("Update error. The image announces an inventory section of " + size + " bytes, it can have " + less +
                   " at most.")
                      .c_str());
}

TEST_F(ImageTest, ASectionIsBounded)
{
    const std::string longText(Image::largestSection, 'x');
    const Bytes bytes = ImageMaker().with("FIRMWARE/NAME", KvCString(longText.c_str())).image();
    expectRefused(bytes, 0x302008,
                  ("Update error. The image announces an inventory section of " + std::to_string(bytes.size()) +
                   " bytes, it can have 1048576 at most.")
                      .c_str());
}

TEST_F(ImageTest, ADamagedSectionIsRefusedWithItsCause)
{
    Bytes bytes = firmware<KvUInt32>("FIRMWARE/SIZE", 0).section();
    bytes[24] = 0xEE;  // the first tag
    expectRefused(bytes, 0x302009, "Update error. The inventory section of the image is damaged.");
    EXPECT_GT(m_errors.getErrorCount(), 1u);
    bytes = firmware<KvUInt32>("FIRMWARE/SIZE", 0).section();
    bytes[bytes.size() - 9] = 2;  // the version in the trailer
    expectRefused(bytes, 0x302009, "Update error. The inventory section of the image is damaged.");
}

TEST_F(ImageTest, ATypeThatIsNoneIsRefused)
{
    const Bytes bytes = ImageMaker().withVersion("FIRMWARE/VERSION", "4.0").image();
    for (const KvUInt32 type : {4u, 14u, 0xFFFFFFFFu})
        expectRefused(
            bytes, 0x302002,
            ("Configuration error. There is no firmware type with the number " + std::to_string(type) + ".").c_str(),
            type);
}

TEST_F(ImageTest, EachFirmwareTypeAsksForItsItem)
{
    const char* const items[] = {"FIRMWARE",   "FPGA",          "FPGAFIRMWARE",       "USERFPGA",   "IPLFIRMWARE",
                                 "CNFIRMWARE", "CNIPLFIRMWARE", "CNCPUCONFIGURATION", "BOOTLOADER", "IOFPGA[3]",
                                 "CPU"};
    const std::vector<std::vector<std::string>> wanted = {{"FIRMWARE"},
                                                          {"FIRMWARE"},
                                                          {"FPGA", "FPGAFIRMWARE", "USERFPGA"},
                                                          {"FPGA", "FPGAFIRMWARE"},
                                                          {},
                                                          {"CNCPUCONFIGURATION"},
                                                          {"IPLFIRMWARE"},
                                                          {"IPLFIRMWARE"},
                                                          {"CNFIRMWARE"},
                                                          {"CNIPLFIRMWARE"},
                                                          {"BOOTLOADER"},
                                                          {"IOFPGA[3]"},
                                                          {"IOFPGA[3]"},
                                                          {"IOFPGA[3]"}};
    for (KvUInt32 type = 0; type < wanted.size(); ++type)
        for (const char* item : items) {
            const std::string version = std::string(item) + "/VERSION";
            const bool suits = open(ImageMaker().withVersion(version.c_str(), "4.0").image(), type) != nullptr;
            EXPECT_EQ(suits, std::count(wanted[type].begin(), wanted[type].end(), item) != 0) << type << " " << item;
        }
    expectRefused(ImageMaker().withVersion("FIRMWARE/VERSION", "4.0").image(), 0x30200a,
                  "Update error. The image has no item for the firmware type UserFpga.", userFpga);
}

TEST_F(ImageTest, OfSeveralItemsTheOneWithTheBoardItemsIdCounts)
{
    set("FPGA[2]/VERSION", KvCVersion(1, 0, 0, 0, 0, 0));
    set("FPGA[3]/VERSION", KvCVersion(1, 0, 0, 0, 0, 0));
    const Bytes bytes = ImageMaker()
                            .withVersion("CPU/FPGAFIRMWARE/VERSION", "5.0")
                            .withVersion("FPGA/VERSION", "6.0")
                            .withVersion("FPGA[2]/VERSION", "7.0")
                            .image();
    EXPECT_STREQ(open(bytes, userFpga, "FPGA[2]")->version().getAsString().c_str(), "7.0");
    EXPECT_STREQ(open(bytes, userFpga, "FPGA[3]")->version().getAsString().c_str(), "5.0") << "the first in order";
}

TEST_F(ImageTest, ADeepSectionIsReadAndItsMessagesAreShort)
{
    std::string place;
    for (int i = 0; i < 2000; ++i)
        place += "CPU/";
    ImageMaker maker;
    maker.with<KvUInt32>((place + "FIRMWARE/SIZE").c_str(), 0);
    EXPECT_EQ(open(maker.image()), nullptr);
    EXPECT_EQ(codes(m_errors), Codes{0x30200b});
    EXPECT_LT(std::string(m_errors.getErrorText(0)).size(), 300u);
    maker.withVersion((place + "FIRMWARE/VERSION").c_str(), "4.0");
    EXPECT_NE(open(maker.image()), nullptr);
}

TEST_F(ImageTest, AnImageWithoutVersionIsRefused)
{
    const char* const text = "Update error. The item ROOT/FIRMWARE of the image has no VERSION.";
    expectRefused(ImageMaker().with<KvUInt32>("FIRMWARE/SIZE", 0).image(), 0x30200b, text);
    expectRefused(ImageMaker().with("FIRMWARE/VERSION", KvCString("4.0")).image(), 0x30200b, text);
}

TEST_F(ImageTest, HardwareWithinTheRangeFits)
{
    set<KvUInt32>("HW_COMPATIBILITY_ID", 0);
    ImageMaker maker = firmware<KvUInt32>("FIRMWARE/MIN_HW_COMPATIBILITY_ID", 2);
    expectHardware(1, maker, false);
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image is for hardware with the compatibility ID from 2, the board has 1.");
    expectHardware(2, maker, true);
    expectHardware(0xFFFFFFFF, maker, true);
    maker.with<KvUInt32>("FIRMWARE/MAX_HW_COMPATIBILITY_ID", 5);
    expectHardware(1, maker, false);
    expectHardware(2, maker, true);
    expectHardware(5, maker, true);
    expectHardware(6, maker, false);
    EXPECT_EQ(codes(m_errors), Codes{0x30200d});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image is for hardware with the compatibility ID 2 to 5, the board has 6.");
    maker.with<KvUInt32>("FIRMWARE/HW_COMPATIBILITY_ID", 7);
    expectHardware(6, maker, false);
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image is for hardware with the compatibility ID 2 to 5 or 7, the board has 6.");
    expectHardware(7, maker, true);
    expectHardware(3, maker, true);
}

TEST_F(ImageTest, HardwareMayBeNamedOrOnlyBoundedAbove)
{
    set<KvUInt32>("HW_COMPATIBILITY_ID", 0);
    const ImageMaker exact = firmware<KvUInt32>("FIRMWARE/HW_COMPATIBILITY_ID", 3);
    expectHardware(2, exact, false);
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image is for hardware with the compatibility ID 3, the board has 2.");
    expectHardware(3, exact, true);
    expectHardware(4, exact, false);
    const ImageMaker most = firmware<KvUInt32>("FIRMWARE/MAX_HW_COMPATIBILITY_ID", 3);
    expectHardware(3, most, true);
    expectHardware(4, most, false);
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image is for hardware with the compatibility ID up to 3, the board has 4.");
}

TEST_F(ImageTest, ABoardWithoutHardwareIdTakesAnyImage)
{
    EXPECT_NE(open(firmware<KvUInt32>("FIRMWARE/MIN_HW_COMPATIBILITY_ID", 200).image()), nullptr);
}

TEST_F(ImageTest, TheBoardsFirmwareMustBeNewEnough)
{
    const Bytes bytes = firmware<KvUInt32>("FIRMWARE/MIN_FW_COMPATIBILITY_ID", 6).image();
    EXPECT_NE(open(bytes), nullptr) << "the item has no FW_COMPATIBILITY_ID";
    set<unsigned short>("FIRMWARE/FW_COMPATIBILITY_ID", 5);
    expectRefused(bytes, 0x30200e,
                  "Update error. The image needs a firmware with a compatibility ID of at least 6, the board has 5.");
    KvCErrorListPool errors;
    m_board->setValue<unsigned short>(errors, at("FIRMWARE/FW_COMPATIBILITY_ID"), 6);
    EXPECT_NE(open(bytes), nullptr);
}

TEST_F(ImageTest, WhatIsToBeComparedMustBeAWholeNumber)
{
    expectRefused(firmware("FIRMWARE/SIZE", KvCString("0")).image(), 0x30200c,
                  "Update error. ROOT/FIRMWARE/SIZE cannot be compared, it is not a whole number.");
    expectRefused(firmware("FIRMWARE/SIZE", -1).image(), 0x30200c,
                  "Update error. ROOT/FIRMWARE/SIZE cannot be compared, it is not a whole number.");
    expectRefused(firmware("FIRMWARE/CHECKSUM_CRC32", 1.0).image(), 0x30200c,
                  "Update error. ROOT/FIRMWARE/CHECKSUM_CRC32 cannot be compared, it is not a whole number.");
    for (const char* field :
         {"MIN_HW_COMPATIBILITY_ID", "MAX_HW_COMPATIBILITY_ID", "HW_COMPATIBILITY_ID", "MIN_FW_COMPATIBILITY_ID"})
        EXPECT_EQ(open(firmware((std::string("FIRMWARE/") + field).c_str(), 1.0f).image()), nullptr) << field;
    set("HW_COMPATIBILITY_ID", KvCString("2"));
    expectRefused(firmware<KvUInt32>("FIRMWARE/SIZE", 0).image(), 0x30200c,
                  "Update error. HCN[4711]/HW_COMPATIBILITY_ID cannot be compared, it is not a whole number.");
}

TEST_F(ImageTest, SizeIsThatOfTheBytesInFrontOfTheSection)
{
    EXPECT_NE(open(firmware<KvUInt64>("FIRMWARE/SIZE", 3).image({1, 2, 3})), nullptr);
    expectRefused(firmware<KvUInt32>("FIRMWARE/SIZE", 4).image({1, 2, 3}), 0x30200f,
                  "Update error. The image says that 4 bytes stand in front of its inventory section, there are 3.");
    expectRefused(firmware<KvUInt64>("FIRMWARE/SIZE", KvUInt64(1) << 40).image({1, 2, 3}), 0x30200f,
                  "Update error. The image says that 1099511627776 bytes stand in front of its inventory section, "
                  "there are 3.");
}

TEST_F(ImageTest, TheChecksumIsComparedAtTheEnd)
{
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    const auto good = open(firmware<KvUInt32>("FIRMWARE/CHECKSUM_CRC32", 0xCBF43926).image(digits));
    ASSERT_NE(good, nullptr);
    EXPECT_EQ(good->verify(m_errors), Verification::Good);
    const auto bad = open(firmware<KvUInt32>("FIRMWARE/CHECKSUM_CRC32", 0xCBF43927).image(digits));
    ASSERT_NE(bad, nullptr) << "it is not known yet";
    EXPECT_EQ(bad->verify(m_errors), Verification::Failed);
    EXPECT_EQ(codes(m_errors), Codes{0x302010});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Update error. The image says that the checksum of its content is 0xcbf43927, it is 0xcbf43926.");
}

TEST_F(ImageTest, ALongContentIsVerifiedSliceBySlice)
{
    const std::size_t size = 2 * Image::sliceBytes + 1;
    const auto image = open(goodImage(size));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->verify(m_errors), Verification::Unfinished);
    EXPECT_EQ(image->verifiedBytes(), Image::sliceBytes);
    EXPECT_EQ(image->verify(m_errors), Verification::Unfinished);
    EXPECT_EQ(image->verify(m_errors), Verification::Good);
    EXPECT_EQ(image->verifiedBytes(), size);
}

TEST_F(ImageTest, ContentThatCannotBeReadIsAFailure)
{
    const Bytes bytes = goodImage(10);
    EXPECT_EQ(open(bytes, userFirmware, "FIRMWARE", 0), nullptr);
    EXPECT_EQ(codes(m_errors), Codes{0x302005});
    EXPECT_STREQ(m_errors.getErrorText(0), "OS error. The image cannot be read: the disk is gone.");

    const std::size_t size = Image::sliceBytes + 10;
    Bytes large = goodImage(size);
    // Section first, so that the content is what cannot be read.
    class Unreadable : public MemoryImage
    {
    public:
        using MemoryImage::MemoryImage;
        bool read(KvUInt64 offset, std::span<unsigned char> into, std::string& problem) const override
        {
            problem = "the disk is gone";
            return offset != Image::sliceBytes && MemoryImage::read(offset, into, problem);
        }
    };
    const auto image = Image::open(m_errors, std::make_unique<Unreadable>(large), userFirmware, *m_board,
                                   *m_board->getItem(at("FIRMWARE")));
    ASSERT_NE(image, nullptr);
    m_errors.clear();
    EXPECT_EQ(image->verify(m_errors), Verification::Unfinished);
    EXPECT_EQ(image->verify(m_errors), Verification::Failed);
    EXPECT_EQ(codes(m_errors), Codes{0x302005});
}

TEST_F(ImageTest, OpeningFailsWithAReportWhenMemoryIsOut)
{
    const Bytes bytes = goodImage(10);
    for (std::size_t n = 1;; ++n) {
        ASSERT_LT(n, 10000u);
        bool failed = false;
        std::unique_ptr<Image> image;
        {
            const FailingAllocation failing(n);
            image = open(bytes);
            failed = failing.hasFailed();
        }
        EXPECT_EQ(image == nullptr, m_errors.getErrorCount() != 0) << "allocation " << n;
        if (image) {
            EXPECT_STREQ(image->version().getAsString().c_str(), "4.0") << "allocation " << n;
        }
        if (!failed)
            break;
    }
}

}  // namespace
