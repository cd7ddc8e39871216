#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "TemporaryFolder.h"
#include "platform/machine/Machine.h"

/** A folder in which a machine's system files stand, to be read instead of those of the machine that runs the test. */
class FakeMachine
{
public:
    const std::string& root() const { return m_folder.path(); }
    void put(const std::string& name, const std::string& content) const
    {
        const std::filesystem::path path = m_folder.path(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }
    void remove(const std::string& name) const { std::filesystem::remove_all(m_folder.path(name)); }
    KvNMachine::Machine read() const { return KvNMachine::readMachine(root(), addresses); }

    /** Two processors of two cores each with one thread, caches, a disk, an SD card, two interfaces. */
    void putEverything() const
    {
        putNames();
        for (int processor = 0; processor < 4; ++processor)
            putProcessor(processor);
        putDisks();
        putInterfaces();
    }

    std::vector<KvNMachine::InterfaceAddress> addresses = {{"lo", "127.0.0.1", "255.0.0.0", true},
                                                           {"eth0", "10.0.1.212", "255.255.255.0", true},
                                                           {"eth0", "fe80::1", "ffff:ffff:ffff:ffff::", false},
                                                           {"eth0", "192.168.7.1", "255.255.0.0", true},
                                                           {"br0", "172.17.0.1", "255.255.0.0", true}};

private:
    void putNames() const
    {
        put("etc/machine-id", "0123456789abcdef0123456789abcdef\n");
        put("proc/sys/kernel/hostname", "bench-3\n");
        put("proc/sys/kernel/arch", "x86_64\n");
        // By which the topology library knows how to read proc/cpuinfo.
        put("proc/hwloc-nofile-info", "Architecture: x86_64\n");
        put("proc/sys/kernel/ostype", "Linux\n");
        put("proc/sys/kernel/osrelease", "6.1.44-rt-2\n");
        put("proc/sys/kernel/version", "#1 SMP PREEMPT_RT\n");
        put("proc/meminfo", "MemTotal:       24682416 kB\nMemFree:        24024556 kB\n");
        put("sys/class/dmi/id/sys_vendor", "Example Systems\n");
        put("sys/class/dmi/id/product_name", "ES 9000\n");
        put("sys/class/dmi/id/board_vendor", "Example Boards\n");
        put("sys/class/dmi/id/board_name", "EB-77  \n");
        put("sys/class/dmi/id/board_version", "A02\n");
        put("sys/class/dmi/id/board_serial", " 00X-12\n");
        put("sys/class/dmi/id/bios_vendor", "Example Firmware\n");
        put("sys/class/dmi/id/bios_version", "2.19.1\n");
        put("sys/class/dmi/id/bios_date", "03/11/2024\n");
    }
    void putProcessor(int number) const
    {
        const int package = number / 2;
        const std::string all = package == 0 ? "3" : "c";
        const std::string own = std::to_string(1 << number);
        const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(number) + "/";
        put("sys/devices/system/cpu/online", "0-3\n");
        put("sys/devices/system/cpu/possible", "0-3\n");
        put("sys/devices/system/cpu/present", "0-3\n");
        put(folder + "topology/physical_package_id", std::to_string(package) + "\n");
        put(folder + "topology/core_id", std::to_string(number % 2) + "\n");
        for (const char* name : {"core_siblings", "package_cpus"})
            put(folder + "topology/" + name, all + "\n");
        for (const char* name : {"thread_siblings", "core_cpus"})
            put(folder + "topology/" + name, own + "\n");
        const auto cache = [&](int index, const char* level, const char* type, const char* size,
                               const std::string& map) {
            const std::string place = folder + "cache/index" + std::to_string(index) + "/";
            put(place + "level", std::string(level) + "\n");
            put(place + "type", std::string(type) + "\n");
            put(place + "size", std::string(size) + "\n");
            put(place + "shared_cpu_map", map + "\n");
        };
        cache(0, "1", "Data", "48K", own);
        cache(1, "1", "Instruction", "32K", own);
        cache(2, "2", "Unified", "2048K", own);
        cache(3, "3", "Unified", "107520K", all);
        // One processor says how fast it can be, the other only how fast it is.
        if (package == 0)
            put(folder + "cpufreq/cpuinfo_max_freq", "3500000\n");
        std::ofstream(m_folder.path("proc/cpuinfo"), std::ios::app)
            << "processor\t: " << number << "\nvendor_id\t: ExampleSilicon\nmodel name\t: ES-6869 @ 2.00GHz\n"
            << "cpu MHz\t\t: 1999.500\nphysical id\t: " << package << "\ncore id\t\t: " << number % 2 << "\n\n";
    }
    void putDisks() const
    {
        put("sys/block/sda/device/vendor", "ATA     \n");
        put("sys/block/sda/device/model", "Example SSD 870 \n");
        put("sys/block/sda/device/vpd_pg80", std::string("\0\x80\0\x08 S5Y1 42", 12));
        put("sys/block/sda/size", "1000215216\n");
        put("sys/block/sda/queue/rotational", "0\n");
        put("sys/block/mmcblk0/device/name", "SD32G\n");
        put("sys/block/mmcblk0/device/serial", "0x1a2b3c4d\n");
        put("sys/block/mmcblk0/size", "62333952\n");
        put("sys/block/vdb/device/vendor", "0x1af4\n");
        put("sys/block/vdb/size", "2048\n");
        put("sys/block/vdb/queue/rotational", "1\n");
        // None of these is a disk: a loop device, one without a medium, an optical drive.
        put("sys/block/loop0/size", "2048\n");
        put("sys/block/sdb/device/model", "Card reader\n");
        put("sys/block/sdb/size", "0\n");
        put("sys/block/sr0/device/model", "DVD\n");
        put("sys/block/sr0/size", "2048\n");
    }
    void putInterfaces() const
    {
        const auto interface = [&](const std::string& name, const char* index, const char* type, bool isReal) {
            put("sys/class/net/" + name + "/type", std::string(type) + "\n");
            put("sys/class/net/" + name + "/ifindex", std::string(index) + "\n");
            if (isReal)
                put("sys/class/net/" + name + "/device/uevent", "");
        };
        interface("lo", "1", "772", false);
        interface("eth0", "3", "1", true);
        put("sys/class/net/eth0/address", "02:00:00:12:67:01\n");
        put("sys/class/net/eth0/operstate", "up\n");
        put("sys/class/net/eth0/speed", "1000\n");
        interface("eth1", "2", "1", true);
        put("sys/class/net/eth1/address", "02:00:00:12:67:02\n");
        put("sys/class/net/eth1/operstate", "down\n");
        put("sys/class/net/eth1/speed", "-1\n");
        interface("br0", "4", "1", false);
        interface("veth7", "5", "1", false);
        put("proc/net/route",
            "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
            "eth0\t0001000A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
            "eth0\t00000000\t0101000A\t0003\t0\t0\t0\t00000000\t0\t0\t0\n");
    }

    TemporaryFolder m_folder;
};
