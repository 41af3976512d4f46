// SPDX-License-Identifier: MIT
//
// What agents and modules send to zansim: a stream in arbitrary pieces, cut into
// records, and records by themselves, against a model that reads all bytes at once.
//
// An input is a row of pieces, each led by a byte N: 0 is a run, two bytes of length
// (little-endian) and the byte to repeat; otherwise N bytes follow.
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "transport/record.h"
#include "transport/stream.h"

#include <arpa/inet.h>

#include <cstring>
#include <optional>

namespace {

using namespace zan::fuzz;
using namespace zan::sim;

constexpr std::size_t header_size = 100;
constexpr std::size_t longest_payload = 35000;
constexpr std::size_t name_size = 32;

// Of the words of a header, by their place in it.
enum Word : std::size_t {
    at_type = 0,
    at_cmd = 4,
    at_dst = 8,
    at_src = 40,
    at_pid = 72,
    at_time = 76,
    at_result = 84,
    at_aux = 88,
    at_arg = 92,
    at_len = 96,
};

std::string next_piece(Input &input) {
    const int size = input.byte();
    if (size != 0)
        return input.bytes(static_cast<std::size_t>(size));
    const int low = input.byte();
    const int length = low + 256 * input.byte();
    return std::string(static_cast<std::size_t>(length), static_cast<char>(input.byte()));
}

// Reads words in the order of one record.
class Header {
public:
    explicit Header(std::string_view bytes) : bytes_(bytes) {
        const std::uint32_t type = raw(at_type);
        host_ = type >= 1 && type < 256;
        ordered_ = host_ || (ntohl(type) >= 1 && ntohl(type) < 256);
    }

    bool ordered() const { return ordered_; }

    std::int32_t word(Word at) const {
        const std::uint32_t value = raw(at);
        return static_cast<std::int32_t>(host_ || at == at_time ? value : ntohl(value));
    }

    // Up to its NUL; all of it when it has none.
    std::string_view name(Word at) const {
        const std::string_view field = bytes_.substr(at, name_size);
        return field.substr(0, field.find('\0'));
    }

    bool has_ends() const {
        return name(at_dst).size() < name_size && name(at_src).size() < name_size;
    }

    bool has_length() const {
        const std::int32_t length = word(at_len);
        return length >= 0 && static_cast<std::size_t>(length) <= longest_payload;
    }

private:
    std::uint32_t raw(Word at) const {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes_.data() + at, sizeof value);
        return value;
    }

    std::string_view bytes_;
    bool host_;
    bool ordered_;
};

void require_header(const Record &record, const Header &header) {
    require(record.type == header.word(at_type), "the class");
    require(record.cmd == header.word(at_cmd), "the command");
    require(record.dst == header.name(at_dst), "the destination");
    require(record.src == header.name(at_src), "the source");
    require(record.pid == header.word(at_pid), "the process id");
    require(record.time == header.word(at_time), "the time");
    require(record.result == header.word(at_result), "the result");
    require(record.aux == header.word(at_aux), "the auxiliary word");
    require(record.arg == header.word(at_arg), "the argument");
    require(record.len == header.word(at_len), "the length");
}

// What is written is read as what it was.
void require_round_trip(const Record &record) {
    StreamReader reader;
    reader.add(encode_for_stream(record));
    const auto again = reader.next();
    require(again && again->error.empty() && reader.unfinished() == 0, "a record that came back");
    require(encode(again->record) == encode(record), "the bytes of a record that came back");
}

// A whole stream, read record by record.
class Model {
public:
    void add(const std::string &piece) { bytes_ += piece; }

    void expect(const std::optional<Received> &received) {
        const std::string_view rest = std::string_view(bytes_).substr(at_);
        if (lost_ || rest.size() < header_size)
            return require(!received, "no record before its header");
        const Header header(rest);
        lost_ = !header.ordered() || !header.has_length();
        if (lost_) {
            require(received && !received->error.empty(), "the defect of what has no end");
            return require_header(received->record, header);
        }
        const auto length = static_cast<std::size_t>(header.word(at_len));
        if (rest.size() < header_size + length)
            return require(!received, "no record before its end");
        require(received.has_value(), "a record that has come");
        require_header(received->record, header);
        require(received->record.payload == rest.substr(header_size, length), "the payload");
        require(received->error.empty() == header.has_ends(), "the defect of a name");
        if (header.has_ends())
            require_round_trip(received->record);
        at_ += header_size + length;
    }

    bool lost() const { return lost_; }
    std::size_t unfinished() const { return bytes_.size() - at_; }

private:
    std::string bytes_;
    std::size_t at_ = 0;
    bool lost_ = false;
};

// As a queue delivers it.
void read_alone(const std::string &piece) {
    const Block block(piece);
    const Received received = decode({block.get(), piece.size()});
    if (piece.size() < header_size)
        return require(!received.error.empty(), "the defect of half a header");
    std::int32_t length = 0;
    std::memcpy(&length, piece.data() + at_len, sizeof length);
    const std::size_t payload = piece.size() - header_size;
    const bool sound = payload <= longest_payload && length == static_cast<std::int32_t>(payload) &&
                       Header(piece).has_ends();
    require(received.error.empty() == sound, "the defect of a record");
    require(received.record.payload == piece.substr(header_size, longest_payload),
            "the payload of a record");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    StreamReader reader;
    Model model;
    // A run may be 64 KB: a few of them are as good as many.
    for (int pieces = 0; pieces < 32 && !input.empty(); ++pieces) {
        const std::string piece = next_piece(input);
        read_alone(piece);
        reader.add(piece);
        model.add(piece);
        for (;;) {
            const auto received = reader.next();
            model.expect(received);
            if (!received)
                break;
        }
        require(reader.lost() == model.lost(), "where the stream is lost");
        require(reader.unfinished() == model.unfinished(), "what is left of the stream");
        require(reader.lost() || reader.unfinished() < header_size + longest_payload,
                "no more kept than a record");
    }
    return 0;
}
