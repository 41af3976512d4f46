// SPDX-License-Identifier: MIT
//
// Comparison and taking apart of arbitrary paths, against a model of both.
//
// An input is four bytes, then two paths with a NUL between them.  The bytes are the
// nocase and direction flags (bits 0 and 1), start and end of a range (as signed numbers;
// -128 and 127 stand for the smallest and the largest), and the size of its buffer.
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "util/path_model.h"

#include <zan.h>

#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace zan::fuzz;
namespace model = zan::test::model;

int range_number(int byte) {
    const auto number = static_cast<std::int8_t>(byte);
    if (number == INT8_MIN)
        return INT_MIN;
    return number == INT8_MAX ? INT_MAX : number;
}

void compare(const std::string &a, const std::string &b, int nocase, int direction) {
    const Block first(a);
    const Block second(b);
    const int same = pathcmp(first.get(), second.get(), nocase);
    require(same == model::pathcmp(a, b, nocase != 0), "pathcmp follows the model");
    require(same == pathcmp(second.get(), first.get(), nocase), "pathcmp is symmetric");
    require(pathcmp(first.get(), first.get(), nocase) == 0, "a path equals itself");
    require(pathpartcmp(first.get(), second.get(), direction, nocase) ==
                model::pathpartcmp(a, b, direction, nocase != 0),
            "pathpartcmp follows the model");
    require(pathobjectcmp(first.get(), second.get()) == model::pathobjectcmp(a, b),
            "pathobjectcmp follows the model");
}

void extract(const std::string &path, int start, int end, int size) {
    const std::unique_ptr<char[]> out(new char[static_cast<std::size_t>(size)]);
    const Block text(path);
    const char *const result = extract_tr098_path(text.get(), out.get(), size, start, end);
    const model::Extracted expected = model::extract(path, start, end);
    require((result == nullptr) == (expected.kind == model::Extracted::null), "null for no path");
    require((result == out.get()) == (expected.kind == model::Extracted::text),
            "the buffer for a range");
    const std::string cut =
        expected.value.substr(0, static_cast<std::size_t>(size > 0 ? size - 1 : 0));
    require(result == nullptr || size == 0 || result == cut, "the elements of the range");
}

void collect(const std::string &path) {
    const auto list = std::make_unique<std::array<std::int32_t, 31>>();
    require(get_instances_by_path(Block(path).get(), list->data()) == 1, "two arguments are there");
    const std::vector<std::int32_t> expected = model::instances(path);
    require(list->front() == static_cast<std::int32_t>(expected.size()) &&
                std::equal(expected.begin(), expected.end(), list->begin() + 1),
            "the instance numbers");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    const int flags = input.byte();
    const int start = range_number(input.byte());
    const int end = range_number(input.byte());
    const int room = input.byte();
    const std::string a = input.text();
    const std::string b = input.text();
    compare(a, b, flags & 1, flags & 2);
    extract(a, start, end, room);
    collect(b);
    return 0;
}
