// SPDX-License-Identifier: MIT
//
// The events of ZAN_EVENTS in zan.h: a row there makes a pair of functions here.
#include "zan.h"

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>

namespace zan {
namespace {

struct DeleteTree {
    void operator()(cJSON *tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, DeleteTree>;

// Text of cJSON's allocator, which the process may have replaced.
struct FreeText {
    void operator()(char *text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, FreeText>;

struct Buffer {
    char *start;
    unsigned int size;
};

using Keys = std::span<const char *const>;

void copy_cut(const Buffer &to, const char *text) {
    if (to.start == nullptr || to.size == 0)
        return;
    const std::size_t length = strnlen(text, to.size - 1);
    std::memcpy(to.start, text, length);
    to.start[length] = '\0';
}

// Null if memory runs out: an event without one of its members would be another event.
JsonText print_object(Keys keys, const char *const *values) {
    const JsonTree object(cJSON_CreateObject());
    if (object == nullptr)
        return nullptr;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        // A null value is refused, and so leaves its member out.
        const bool added = cJSON_AddStringToObject(object.get(), keys[i], values[i]) != nullptr;
        if (!added && values[i] != nullptr)
            return nullptr;
    }
    return JsonText(cJSON_PrintUnformatted(object.get()));
}

int encode(Keys keys, const char *const *values, const Buffer &out) {
    const JsonText text = print_object(keys, values);
    copy_cut(out, text != nullptr ? text.get() : "");
    return 0;
}

int decode(const char *function, Keys keys, const Buffer *buffers, const char *text) {
    const JsonTree tree(cJSON_Parse(text));
    if (tree == nullptr) {
        std::printf("%s:cJSON format error...\n", function);
        return -1;
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const cJSON *member = cJSON_GetObjectItem(tree.get(), keys[i]);
        if (member != nullptr)
            copy_cut(buffers[i], member->valuestring != nullptr ? member->valuestring : "");
    }
    return 0;
}

} // namespace
} // namespace zan

using namespace zan;

// NOLINTBEGIN(bugprone-macro-parentheses): they make parameter lists and names

// X(1), X(2), ... for each of the keys.
#define ZAN_FOR_1(X) X(1)
#define ZAN_FOR_2(X) ZAN_FOR_1(X), X(2)
#define ZAN_FOR_3(X) ZAN_FOR_2(X), X(3)
#define ZAN_FOR_4(X) ZAN_FOR_3(X), X(4)
#define ZAN_FOR_5(X) ZAN_FOR_4(X), X(5)
#define ZAN_FOR_6(X) ZAN_FOR_5(X), X(6)
// The assertion below reports a row with more keys.
#define ZAN_SEVENTH(k1, k2, k3, k4, k5, k6, result, ...) result
#define ZAN_FOR_EACH(X, ...)                                                                       \
    ZAN_SEVENTH(__VA_ARGS__, ZAN_FOR_6, ZAN_FOR_5, ZAN_FOR_4, ZAN_FOR_3, ZAN_FOR_2, ZAN_FOR_1, )(X)

#define ZAN_VALUE_PARAMETER(n) const char *value##n
#define ZAN_VALUE(n) value##n
#define ZAN_BUFFER_PARAMETERS(n) char *buffer##n, unsigned int size##n
#define ZAN_BUFFER(n)                                                                              \
    { buffer##n, size##n }

#define ZAN_DEFINE_CODEC(kind, name, ...)                                                          \
    static constexpr const char *keys_of_##kind[] = {__VA_ARGS__};                                 \
    static_assert(std::size(keys_of_##kind) <= 6, "add a ZAN_FOR_7 for a seventh member");         \
    int encode_##name(ZAN_FOR_EACH(ZAN_VALUE_PARAMETER, __VA_ARGS__), char *out,                   \
                      unsigned int size) {                                                         \
        const char *const values[] = {ZAN_FOR_EACH(ZAN_VALUE, __VA_ARGS__)};                       \
        return encode(keys_of_##kind, values, {out, size});                                        \
    }                                                                                              \
    int decode_##name(ZAN_FOR_EACH(ZAN_BUFFER_PARAMETERS, __VA_ARGS__), const char *text) {        \
        const Buffer buffers[] = {ZAN_FOR_EACH(ZAN_BUFFER, __VA_ARGS__)};                          \
        return decode("decode_" #name, keys_of_##kind, buffers, text);                             \
    }

ZAN_EVENTS(ZAN_DEFINE_CODEC)

// NOLINTEND(bugprone-macro-parentheses)
