#include "tools/kvboardd/HostInventory.h"

#include <gtest/gtest.h>

#include <map>

#include "FakeMachine.h"
#include "inventory/KvCInventoryItem.h"
#include "tools/common/TreeJson.h"

namespace {

using KvNBoardService::BoardDescription;
using KvNBoardService::describeHost;
using KvNBoardService::hostSerialNumber;

/** Every parameter of the tree as "ADDRESS TYPE VALUE UNIT", in order, below the root's address. */
std::string lines(const KvCInventoryItem& root)
{
    std::string out;
    const std::size_t prefix = std::string(root.getAddress().toString().c_str()).size() + 1;
    const auto walk = [&](const auto& self, const KvCInventoryItem& item) -> void {
        item.forEachParameter([&](KvCInventoryParameter& parameter) {
            out += std::string(parameter.getAddress().toString().c_str()).substr(prefix) + " " +
                   parameter.getTypeAsString().c_str() + " ";
            KvNTreeJson::appendValue(out, parameter);
            out += *parameter.getUnit() == '\0' ? "\n" : std::string(" ") + parameter.getUnit() + "\n";
            EXPECT_FALSE(parameter.isModifiable());
            return true;
        });
        for (const KvCInventoryItem* child = item.getFirstSubItem(); child != nullptr; child = child->getNext())
            self(self, *child);
    };
    walk(walk, root);
    return out;
}

BoardDescription describe(const KvNMachine::Machine& machine, std::optional<KvUInt32> serial = std::nullopt)
{
    BoardDescription board;
    std::string problem;
    EXPECT_TRUE(describeHost(machine, serial, board, problem)) << problem;
    return board;
}

TEST(HostInventoryTest, AMachineIsATreeUnderItsSerialNumber)
{
    FakeMachine machine;
    machine.putEverything();
    const BoardDescription board = describe(machine.read(), 4711);
    ASSERT_TRUE(board.tree);
    EXPECT_EQ(board.serialNumber, 4711u);
    EXPECT_EQ(board.boardType, 0u);
    EXPECT_TRUE(board.isMachine);
    EXPECT_EQ(board.boardName, "bench-3");
    EXPECT_EQ(board.systemName, "bench-3");
    EXPECT_EQ(board.address, 0x7F000001u);
    EXPECT_STREQ(board.tree->getAddress().toString().c_str(), "HCN[4711]");
    EXPECT_EQ(lines(*board.tree),
              R"(NAME String "bench-3"
SYSTEMNAME String "bench-3"
BOARD_TYPE UInt32 0
SERIAL_NUMBER UInt32 4711
VENDOR String "Example Systems"
MODEL String "ES 9000"
CPU/VENDOR String "ExampleSilicon"
CPU/MODEL String "ES-6869 @ 2.00GHz"
CPU/FREQUENCY Float64 3.5e+09 Hz
CPU/NUMBER_OF_CORES UInt8 2
CPU/ARCHITECTURE String "x86_64"
CPU/L1_CACHE/SIZE UInt32 49152 Byte
CPU/L1_CACHE/TYPE String "data"
CPU/L1_CACHE/COUNT UInt32 2
CPU/L1_CACHE[2]/SIZE UInt32 32768 Byte
CPU/L1_CACHE[2]/TYPE String "instruction"
CPU/L1_CACHE[2]/COUNT UInt32 2
CPU/L2_CACHE/SIZE UInt32 2097152 Byte
CPU/L2_CACHE/TYPE String "unified"
CPU/L2_CACHE/COUNT UInt32 2
CPU/L3_CACHE/SIZE UInt32 110100480 Byte
CPU/L3_CACHE/TYPE String "unified"
CPU/L3_CACHE/COUNT UInt32 1
CPU[2]/VENDOR String "ExampleSilicon"
CPU[2]/MODEL String "ES-6869 @ 2.00GHz"
CPU[2]/FREQUENCY Float64 1999500000 Hz
CPU[2]/NUMBER_OF_CORES UInt8 2
CPU[2]/ARCHITECTURE String "x86_64"
CPU[2]/L1_CACHE/SIZE UInt32 49152 Byte
CPU[2]/L1_CACHE/TYPE String "data"
CPU[2]/L1_CACHE/COUNT UInt32 2
CPU[2]/L1_CACHE[2]/SIZE UInt32 32768 Byte
CPU[2]/L1_CACHE[2]/TYPE String "instruction"
CPU[2]/L1_CACHE[2]/COUNT UInt32 2
CPU[2]/L2_CACHE/SIZE UInt32 2097152 Byte
CPU[2]/L2_CACHE/TYPE String "unified"
CPU[2]/L2_CACHE/COUNT UInt32 2
CPU[2]/L3_CACHE/SIZE UInt32 110100480 Byte
CPU[2]/L3_CACHE/TYPE String "unified"
CPU[2]/L3_CACHE/COUNT UInt32 1
RAM/SIZE64 ULong64 "25274793984" Byte
MAINBOARD/VENDOR String "Example Boards"
MAINBOARD/MODEL String "EB-77"
MAINBOARD/INFO String "A02"
MAINBOARD/SERIAL_NUMBER String "00X-12"
BIOS/VENDOR String "Example Firmware"
BIOS/VERSION Version "2.19.1"
BIOS/INFO String "2.19.1"
BIOS/RELEASE_DATE String "03/11/2024"
FLASHDRIVE/NAME String "mmcblk0"
FLASHDRIVE/MODEL String "SD32G"
FLASHDRIVE/SERIAL_NUMBER String "0x1a2b3c4d"
FLASHDRIVE/SIZE64 ULong64 "31914983424" Byte
FLASHDRIVE[2]/NAME String "sda"
FLASHDRIVE[2]/VENDOR String "ATA"
FLASHDRIVE[2]/MODEL String "Example SSD 870"
FLASHDRIVE[2]/SERIAL_NUMBER String "S5Y1 42"
FLASHDRIVE[2]/SIZE64 ULong64 "512110190592" Byte
FLASHDRIVE[2]/TYPE String "solid state"
FLASHDRIVE[3]/NAME String "vdb"
FLASHDRIVE[3]/SIZE64 ULong64 "1048576" Byte
FLASHDRIVE[3]/TYPE String "rotating"
NETWORK/ETHERNET/NAME String "eth1"
NETWORK/ETHERNET/MAC_ADDRESS String "02:00:00:12:67:02"
NETWORK/ETHERNET/STATUS String "down"
NETWORK/ETHERNET[2]/NAME String "eth0"
NETWORK/ETHERNET[2]/MAC_ADDRESS String "02:00:00:12:67:01"
NETWORK/ETHERNET[2]/IPADDRESS String "10.0.1.212"
NETWORK/ETHERNET[2]/SUBNET_MASK String "255.255.255.0"
NETWORK/ETHERNET[2]/GATEWAY_ADDRESS String "10.0.1.1"
NETWORK/ETHERNET[2]/MAX_BAUDRATE ULong64 "1000000000" bit/s
NETWORK/ETHERNET[2]/STATUS String "up"
NETWORK/ETHERNET[2]/ADDRESS[2]/IPADDRESS String "192.168.7.1"
NETWORK/ETHERNET[2]/ADDRESS[2]/SUBNET_MASK String "255.255.0.0"
NETWORK/ETHERNET[2]/ADDRESS[3]/IPADDRESS String "fe80::1"
NETWORK/ETHERNET[2]/ADDRESS[3]/SUBNET_MASK String "ffff:ffff:ffff:ffff::"
NETWORK/ETHERNET[3]/NAME String "br0"
NETWORK/ETHERNET[3]/IPADDRESS String "172.17.0.1"
NETWORK/ETHERNET[3]/SUBNET_MASK String "255.255.0.0"
FIRMWARE/NAME String "Linux"
FIRMWARE/VERSION Version "6.1.44"
FIRMWARE/INFO String "6.1.44-rt-2 #1 SMP PREEMPT_RT"
)");
}

TEST(HostInventoryTest, WhatCannotBeReadIsLeftOut)
{
    FakeMachine machine;
    machine.put("etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    const BoardDescription board = describe(machine.read(), 1);
    ASSERT_TRUE(board.tree);
    EXPECT_EQ(board.boardName, "");
    EXPECT_EQ(lines(*board.tree), "BOARD_TYPE UInt32 0\nSERIAL_NUMBER UInt32 1\n");
    EXPECT_EQ(board.tree->getFirstSubItem(), nullptr) << "no item without a value";
}

TEST(HostInventoryTest, AMachineWithADeviceTreeSaysWhatItIsThere)
{
    FakeMachine machine;
    machine.put("proc/device-tree/model", std::string("Example Board 4 Rev 1.2\0", 24));
    const KvNMachine::Machine read = machine.read();
    EXPECT_EQ(read.system.model, "Example Board 4 Rev 1.2");
    EXPECT_EQ(lines(*describe(read, 1).tree),
              "BOARD_TYPE UInt32 0\nSERIAL_NUMBER UInt32 1\nMODEL String \"Example Board 4 Rev 1.2\"\n");
}

TEST(HostInventoryTest, TheSerialNumberIsMadeOfTheMachinesIdentity)
{
    FakeMachine machine;
    EXPECT_EQ(hostSerialNumber(machine.read()), std::nullopt);
    BoardDescription board;
    std::string problem;
    EXPECT_FALSE(describeHost(machine.read(), std::nullopt, board, problem));
    EXPECT_EQ(problem,
              "this machine has no /etc/machine-id and no hardware address: its serial number must be given "
              "with --serial");

    machine.put("sys/class/net/eth0/type", "1\n");
    machine.put("sys/class/net/eth0/device/uevent", "");
    machine.put("sys/class/net/eth0/address", "00:00:00:00:00:00\n");
    EXPECT_EQ(hostSerialNumber(machine.read()), std::nullopt);
    machine.put("sys/class/net/eth0/address", "a\n");
    EXPECT_EQ(hostSerialNumber(machine.read()), 0xE40C292Cu) << "FNV-1a of the letter a";

    for (const char* id : {"", "uninitialized\n", "0123456789abcdef0123456789abcde\n",
                           "0123456789ABCDEF0123456789ABCDEF", "00000000000000000000000000000000"}) {
        machine.put("etc/machine-id", id);
        EXPECT_EQ(hostSerialNumber(machine.read()), 0xE40C292Cu) << id << " is no identity";
    }
    machine.put("var/lib/dbus/machine-id", "11111111111111111111111111111111\n");
    const auto older = hostSerialNumber(machine.read());
    EXPECT_NE(older, 0xE40C292Cu);
    machine.put("etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    const auto serial = hostSerialNumber(machine.read());
    EXPECT_NE(serial, older);
    machine.remove("sys");
    EXPECT_EQ(hostSerialNumber(machine.read()), serial) << "it does not depend on anything else";
    EXPECT_EQ(describe(machine.read()).serialNumber, serial);
}

TEST(HostInventoryTest, TheSerialNumberIsNeverZero)
{
    KvNMachine::Machine machine;
    machine.id = "\x02\xB5\x1D\x8E\xBB";  // FNV-1a of which is 0
    EXPECT_EQ(hostSerialNumber(machine), 1u);
}

TEST(HostInventoryTest, TextsOfTheSystemAreAnyBytesButBounded)
{
    FakeMachine machine;
    machine.put("etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    machine.put("proc/sys/kernel/hostname", "\xFF\xFE\x1B[2J\n");
    machine.put("sys/class/dmi/id/product_name", std::string(100000, 'x'));
    machine.put("sys/class/dmi/id/sys_vendor", std::string("one\0two", 7));
    machine.put("sys/class/dmi/id/board_name", " \n\t ");
    const KvNMachine::Machine read = machine.read();
    EXPECT_EQ(read.hostName, "\xFF\xFE\x1B[2J");
    EXPECT_EQ(read.system.model, std::string(255, 'x'));
    EXPECT_EQ(read.system.vendor, "one");
    EXPECT_EQ(read.board.model, "");
    const BoardDescription board = describe(read, 1);
    KvNTreeJson::TextSink sink;
    ASSERT_TRUE(KvNTreeJson::writeItem(sink, *board.tree));
    EXPECT_NE(sink.text().find("base64"), std::string::npos) << "JSON has no bytes that are not UTF-8";
    EXPECT_EQ(sink.text().find('\xFF'), std::string::npos);
}

TEST(HostInventoryTest, OnlyVersionsThatFitAreVersions)
{
    FakeMachine machine;
    const auto version = [&](const char* file, const std::string& text, const char* parameter) -> std::string {
        machine.put(file, text);
        const BoardDescription board = describe(machine.read(), 1);
        const std::string all = lines(*board.tree);
        const std::string start = std::string(parameter) + "/VERSION Version ";
        const std::size_t found = all.find(start);
        return found == std::string::npos
                   ? ""
                   : all.substr(found + start.size(), all.find('\n', found) - found - start.size());
    };
    const std::map<std::string, std::string> kernels = {{"6.1.0-18-amd64", "\"6.1\""},
                                                        {"6.18.44", "\"6.18.44\""},
                                                        {"6.12", "\"6.12\""},
                                                        {"5.4.255-x", "\"5.4.255\""},
                                                        {"4.4.302", ""},
                                                        {"300.1.2", ""},
                                                        {"6", ""},
                                                        {"next", ""},
                                                        {"", ""}};
    for (const auto& [text, expected] : kernels)
        EXPECT_EQ(version("proc/sys/kernel/osrelease", text, "FIRMWARE"), expected) << text;
    const std::map<std::string, std::string> bioses = {{"1.2", "\"1.2\""}, {"1.2.3", "\"1.2.3\""}, {"F.23", ""},
                                                       {"1.2-x", ""},      {"1.2.3.4", ""},        {"1.", ""}};
    for (const auto& [text, expected] : bioses)
        EXPECT_EQ(version("sys/class/dmi/id/bios_version", text, "BIOS"), expected) << text;
}

TEST(HostInventoryTest, MoreCoresThanAByteHoldsAreCountedInAWord)
{
    KvNMachine::Machine machine;
    machine.processors.resize(2);
    machine.processors[0].cores = 255;
    machine.processors[1].cores = 256;
    machine.processors[1].caches = {{3, "unified", KvUInt64(5) << 30, 1}, {4, "unified", 1, 1}};
    EXPECT_EQ(lines(*describe(machine, 1).tree), R"(BOARD_TYPE UInt32 0
SERIAL_NUMBER UInt32 1
CPU/NUMBER_OF_CORES UInt8 255
CPU[2]/NUMBER_OF_CORES UInt32 256
CPU[2]/L3_CACHE/SIZE64 ULong64 "5368709120" Byte
CPU[2]/L3_CACHE/TYPE String "unified"
CPU[2]/L3_CACHE/COUNT UInt32 1
)");
}

TEST(HostInventoryTest, ThisMachineIsDescribedUnderTheCataloguesIds)
{
    const KvNMachine::Machine machine = KvNMachine::readMachine("/", KvNMachine::interfaceAddresses());
    ASSERT_FALSE(machine.processors.empty());
    EXPECT_NE(machine.memoryBytes, 0u);
    EXPECT_NE(machine.hostName, "");
    const BoardDescription board = describe(machine, 77);
    ASSERT_TRUE(board.tree);
    const std::string all = lines(*board.tree);
    EXPECT_NE(all.find("CPU/NUMBER_OF_CORES UInt8 "), std::string::npos) << all;
    EXPECT_NE(all.find("RAM/SIZE64 ULong64 "), std::string::npos) << all;
    EXPECT_NE(all.find("FIRMWARE/INFO String "), std::string::npos) << all;
    const KvNMachine::Machine again = KvNMachine::readMachine("/", KvNMachine::interfaceAddresses());
    EXPECT_EQ(again.id, machine.id);
    EXPECT_EQ(again.processors.size(), machine.processors.size());
}

}  // namespace
