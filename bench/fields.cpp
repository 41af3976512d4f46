// SPDX-License-Identifier: MIT
// Fields and the hash against what a module's author would write otherwise: a packed
// structure copied with memcpy, which knows nothing of lengths, and the hash as a loop.
// The number behind a name is the length of what is written or hashed.
#include "ratio_report.h"

#include "zan.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

namespace {

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;

// An interface as one module tells another of it.
struct [[gnu::packed]] Packed {
    char name[16];
    char address[18];
    std::int32_t index;
    std::int32_t mtu;
};

struct Interface {
    const char *name = "eth0.4";
    const char *address = "02:00:5e:10:00:01";
    std::int32_t index = 7;
    std::int32_t mtu = 1500;
};

template<std::size_t size> void copy(char (&to)[size], const char *from) {
    std::memcpy(to, from, std::min(std::strlen(from) + 1, size));
}

std::size_t write_packed(const Interface &from, char *to) {
    Packed packed;
    copy(packed.name, from.name);
    copy(packed.address, from.address);
    packed.index = from.index;
    packed.mtu = from.mtu;
    std::memcpy(to, &packed, sizeof packed);
    return sizeof packed;
}

std::size_t write_fields(const Interface &from, char *to) {
    char *pos = to;
    int room = 127;
    fill_string(&pos, &room, from.name);
    fill_string(&pos, &room, from.address);
    fill_int(&pos, &room, from.index);
    fill_int(&pos, &room, from.mtu);
    return static_cast<std::size_t>(pos - to);
}

struct Told {
    char name[16];
    char address[18];
    int index;
    int mtu;
};

void read_packed(const char *from, std::size_t, Told &to) {
    Packed packed;
    std::memcpy(&packed, from, sizeof packed);
    std::memcpy(to.name, packed.name, sizeof to.name);
    std::memcpy(to.address, packed.address, sizeof to.address);
    to.index = packed.index;
    to.mtu = packed.mtu;
}

void read_fields(const char *from, std::size_t size, Told &to) {
    char *pos = const_cast<char *>(from);
    int room = static_cast<int>(size);
    get_string2(&pos, &room, to.name, sizeof to.name);
    get_string2(&pos, &room, to.address, sizeof to.address);
    to.index = get_int(&pos, &room);
    to.mtu = get_int(&pos, &room);
}

template<typename Run> void add(const std::string &name, const std::string &group, Run run) {
    benchmark::RegisterBenchmark((name + "/" + group).c_str(), run)
        ->MinTime(seconds_each)
        ->Repetitions(repetitions);
}

using Write = std::size_t (*)(const Interface &, char *);
using Read = void (*)(const char *, std::size_t, Told &);

void add_write(const std::string &name, Write write, const std::string &size) {
    add(name, "write 4 fields " + size, [write](benchmark::State &state) {
        Interface interface;
        char buffer[128];
        for (auto _ : state) {
            benchmark::DoNotOptimize(interface);
            benchmark::DoNotOptimize(write(interface, buffer));
            benchmark::ClobberMemory();
        }
    });
}

void add_read(const std::string &name, Write write, Read read, const std::string &size) {
    add(name, "read 4 fields " + size, [write, read](benchmark::State &state) {
        char buffer[128];
        const std::size_t written = write(Interface(), buffer);
        Told told{};
        for (auto _ : state) {
            read(buffer, written, told);
            benchmark::DoNotOptimize(told);
            benchmark::ClobberMemory();
        }
    });
}

// ---- the hash --------------------------------------------------------------

std::uint32_t hash_by_loop(const char *text, int modulus) {
    std::uint32_t hash = 0x811C9DC5;
    for (; *text != '\0'; ++text)
        hash = (hash * 16777619) ^ static_cast<std::uint32_t>(std::tolower(*text));
    return (hash & 0x7FFFFFFF) % static_cast<std::uint32_t>(modulus);
}

void add_hash(const std::string &name, std::uint32_t (*hash)(const char *, int), const char *text) {
    add(name, "hash " + std::to_string(std::strlen(text)), [hash, text](benchmark::State &state) {
        for (auto _ : state)
            benchmark::DoNotOptimize(hash(text, 97));
    });
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    char buffer[128];
    const std::string size = std::to_string(write_fields(Interface(), buffer));
    add_write("otherwise", write_packed, size);
    add_write("library", write_fields, size);
    add_read("otherwise", write_packed, read_packed, size);
    add_read("library", write_fields, read_fields, size);
    for (const char *text :
         {"wlan0", "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID"}) {
        add_hash("otherwise", hash_by_loop, text);
        add_hash("library", fnv1_hash, text);
    }
    return zan::bench::run_interleaved(argc, argv, "otherwise");
}
