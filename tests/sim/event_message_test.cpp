// SPDX-License-Identifier: MIT
#include "trace/event_message.h"

#include <gtest/gtest.h>

namespace {

using zan::sim::read_event_message;

// "wan IP=1 Mask=2", "wan? IP=1" when members are missing, "-" for none.
std::string shown(std::string_view text) {
    const auto message = read_event_message(text);
    if (!message)
        return "-";
    std::string line = message->kind + (message->has_all ? "" : "?");
    for (const auto &[key, value] : message->members)
        line += ' ' + key + '=' + value;
    return line;
}

TEST(EventMessage, IsKnownByItsMembers) {
    EXPECT_EQ(shown(R"({"Type":"t","Action":"a","ALMACAddress":"m","Value":"v"})"),
              "easymesh Type=t Action=a ALMACAddress=m Value=v");
    EXPECT_EQ(shown(R"({"Type":"t","Action":"a","Value":"v"})"),
              "palumesh Type=t Action=a Value=v");
    EXPECT_EQ(shown(R"({"IP":"1","Mask":"2","Gateway":"3","DNS":"4","Interface":"5"})"),
              "wan IP=1 Mask=2 Gateway=3 DNS=4 Interface=5");
    EXPECT_EQ(shown(R"({"Action":"a"})"), "wifi_sniffer Action=a");
    EXPECT_EQ(shown(R"({"Action":"a","CFGPath":"/p"})"), "ser2net Action=a CFGPath=/p");
    EXPECT_EQ(shown(R"({"Function":"f","Action":"a","CFGPath":"/p","Value":"v"})"),
              "firewall Function=f Action=a CFGPath=/p Value=v");
    EXPECT_EQ(shown(R"({"SerialNumber":"1","Ssid":"2","Bssid24G":"3","Bssid5G":"4",)"
                    R"("Channel24G":"5","Channel5G":"6"})"),
              "neighbor SerialNumber=1 Ssid=2 Bssid24G=3 Bssid5G=4 Channel24G=5 Channel5G=6");
}

TEST(EventMessage, IsTakenForTheSmallestThatHasItsKeys) {
    EXPECT_EQ(shown(R"({"IP":"1","Interface":"5"})"), "wan? IP=1 Interface=5");
    EXPECT_EQ(shown(R"({"Type":"t"})"), "palumesh? Type=t");
    EXPECT_EQ(shown(R"({"CFGPath":"/p"})"), "ser2net? CFGPath=/p");
    EXPECT_EQ(shown(R"({"CFGPath":"/p","Value":"v"})"), "firewall? CFGPath=/p Value=v");
}

TEST(EventMessage, IsReadAsItsReceiverReadsIt) {
    EXPECT_EQ(shown(R"({ "dns" : "4", "iP":"1" })"), "wan? IP=1 DNS=4");
    EXPECT_EQ(shown(R"({"Action":"first","Action":"second"})"), "wifi_sniffer Action=first");
    EXPECT_EQ(shown(R"({"action":"first","Action":"second"})"), "wifi_sniffer Action=first");
    EXPECT_EQ(shown(R"({"Action":""})"), "wifi_sniffer Action=");
    EXPECT_EQ(shown(R"({"Action":"a\"\u00e9"})"), "wifi_sniffer Action=a\"\xc3\xa9");
}

TEST(EventMessage, IsNoOtherText) {
    for (const char *text :
         {"", "scan now", "{", "{}", "[]", "[\"Action\"]", "\"Action\"", R"({"Action":1})",
          R"({"Action":null})", R"({"Action":{"Type":"t"}})", R"({"Action":["a"]})",
          R"({"Action":"a","Other":"o"})", R"({"IP":"1","Ssid":"2"})", R"({"Action":"a"} rest)",
          R"({"Action":"a)", "{\"Action\":\"\xff\"}"})
        EXPECT_EQ(shown(text), "-") << text;
    std::string deep;
    for (int i = 0; i < 3000; ++i)
        deep += "{\"Action\":";
    EXPECT_EQ(shown(deep), "-");
}

} // namespace
