// SPDX-License-Identifier: MIT
//
// The readers of fields, on arbitrary bytes in a block that ends with the last byte
// that a reader may read, against a model.
//
// An input is eight bytes, the readers that take turns (in the lower two bits, a size
// above them), then the fields.
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "util/fields.h"

#include <zan.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace zan::fuzz;
using zan::test::FieldModel;

constexpr std::size_t steps = 8;

// Cut by a NUL inside, as C sees both.
void require_same_text(const char *text, const std::string &expected) {
    require(std::strcmp(text, expected.c_str()) == 0, "the text of the field");
}

void read_into_destination(char **pos, int *room, FieldModel &model, int size) {
    const std::unique_ptr<char[]> dst(new char[static_cast<std::size_t>(size)]);
    const std::string expected = model.get_string2(static_cast<std::size_t>(size));
    const char *text = get_string2(pos, room, dst.get(), size);
    require((text == dst.get()) == !model.failed(), "the destination for a field");
    require_same_text(text, expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    int readers[steps];
    for (int &reader : readers)
        reader = input.byte();
    if (size < steps)
        return 0;
    std::string bytes(reinterpret_cast<const char *>(data) + steps, size - steps);
    int room = static_cast<int>(bytes.size());
    bytes.append(FieldModel::spare, '\x01');

    const std::unique_ptr<char[]> block(new char[bytes.size()]);
    bytes.copy(block.get(), bytes.size());
    char *pos = block.get();
    FieldModel model(bytes, room);
    for (const int reader : readers) {
        switch (reader & 3) {
        case 0:
            require_same_text(get_string(&pos, &room), model.get_string());
            break;
        case 1:
            require(get_int(&pos, &room) == model.get_int(), "the number of the field");
            break;
        case 2:
            read_into_destination(&pos, &room, model, 1 + (reader >> 2));
            break;
        default:
            require_same_text(get_string2(&pos, &room, nullptr, 0), model.get_string());
            break;
        }
        require(room == model.room(), "the room left");
        require(pos == block.get() + model.at(), "the place of the next field");
    }
    return 0;
}
