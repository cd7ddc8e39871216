#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNMachine {

/** Longest text that is taken from the system, in bytes. */
inline constexpr std::size_t longestText = 255;

/** Caches of one kind in one processor. */
struct Cache
{
    unsigned level = 0;
    std::string type;  ///< "unified", "data" or "instruction"
    KvUInt64 bytes = 0;
    unsigned count = 0;  ///< how many of them the processor has
};

/** A processor, the thing in a socket. */
struct Processor
{
    std::string vendor;
    std::string model;
    unsigned cores = 0;
    std::optional<double> hertz;  ///< the highest frequency; without one, that of the moment
    std::vector<Cache> caches;    ///< by level, in one level data before instruction
};

/** What the firmware says of a part of the machine. */
struct Part
{
    std::string vendor;
    std::string model;
    std::string version;
    std::string serialNumber;
    std::string date;
};

/** A disk of any make. */
struct Disk
{
    std::string name;
    std::string vendor;
    std::string model;
    std::string serialNumber;
    KvUInt64 bytes = 0;
    std::optional<bool> isRotating;
};

/** An address of an interface as texts, of either family. */
struct InterfaceAddress
{
    std::string interface;
    std::string address;
    std::string mask;  ///< empty when there is none
    bool isIPv4 = false;
};

/** An Ethernet interface. */
struct Interface
{
    std::string name;
    std::string hardwareAddress;
    std::string state;                        ///< as the system calls it: "up", "down", "lowerlayerdown", ...
    std::optional<KvUInt64> bitsPerSecond;    ///< of the link as it is; null when there is none
    std::vector<InterfaceAddress> addresses;  ///< IPv4 first
    std::string gateway;                      ///< of its IPv4 default route; empty without one
};

/** The kernel that runs. */
struct Kernel
{
    std::string name;     ///< "Linux"
    std::string release;  ///< "6.1.0-18-amd64"
    std::string build;    ///< "#1 SMP PREEMPT_DYNAMIC ..."
};

/**
 * What can be known of the machine that the program runs on. A text that cannot be read is empty, a number null or 0, a
 * part that is not there is missing in its list. Texts are whatever the system has, any bytes but NUL, without white
 * space around them, and cut to longestText.
 */
struct Machine
{
    std::string id;  ///< its lasting identity: 32 hexadecimal digits, or the first hardware address
    std::string hostName;
    std::string architecture;
    Part system;
    Part board;
    Part bios;
    Kernel kernel;
    KvUInt64 memoryBytes = 0;
    std::vector<Processor> processors;
    std::vector<Disk> disks;            ///< by name
    std::vector<Interface> interfaces;  ///< in the order in which the system numbers them
};

/** The addresses of the machine's interfaces, in the system's order. */
std::vector<InterfaceAddress> interfaceAddresses();

/**
 * Reads all that can be read now. `root` is the folder that stands for /, with etc, proc and sys in it; `addresses` are
 * the addresses of the interfaces, which no file has. Never fails; throws std::bad_alloc when memory is out. To be
 * called before threads are started: the topology library is told some things by the environment.
 */
Machine readMachine(const std::string& root, const std::vector<InterfaceAddress>& addresses);

}  // namespace KvNMachine
