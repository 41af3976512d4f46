// SPDX-License-Identifier: MIT
//
// The address validators and conversions with arbitrary texts, against models.  An input is
// the text; a NUL in it becomes a blank.
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "util/address_model.h"

#include <zan.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace zan::fuzz;
namespace model = zan::test::model;

void validate(const std::string &text) {
    const Block block(text);
    const char *const address = block.get();
    require(zan_is_valid_ipv4(address) == model::is_host(text), "a host address");
    require(zan_valid_ipv4_check(address) == model::is_ipv4(text), "an address");
    require(zan_is_valid_ipv4_mask(address) == model::is_mask(text), "a mask");
    require(zan_is_valid_macaddr(address) == model::is_mac(text), "a MAC address");
    require(zan_is_valid_ipv4_list(address) == model::all_entries(text, model::is_host),
            "a list of host addresses");
    require(zan_is_valid_ipv4_mask_list(address) == model::all_entries(text, model::is_mask),
            "a list of masks");
    require(zan_is_valid_mac_list(address) == model::all_entries(text, model::is_mac),
            "a list of MAC addresses");
    require(std::memcmp(address, text.c_str(), text.size() + 1) == 0, "the text is as it was");
}

void convert(const std::string &text) {
    const std::unique_ptr<unsigned char[]> mac(new unsigned char[6]);
    const int result = zan_macstr_to_num(Block(text).get(), mac.get());
    require(result == (model::is_mac(text) ? 0 : -1), "valid texts are converted");
    if (result != 0)
        return;
    const std::unique_ptr<char[]> back(new char[18]);
    const std::unique_ptr<unsigned char[]> again(new unsigned char[6]);
    require(zan_macnum_to_str(mac.get(), back.get()) == 0, "bytes are converted");
    require(zan_macstr_to_num(back.get(), again.get()) == 0 &&
                std::memcmp(mac.get(), again.get(), 6) == 0,
            "bytes come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string text(data, data + size);
    for (char &c : text)
        c = c == '\0' ? ' ' : c;
    validate(text);
    convert(text);
    return 0;
}
