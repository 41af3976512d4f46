// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"

#include "support/new_process.h"

#include <thread>

namespace zan::test {
namespace {

constexpr const char *model_path = "/runtime/hw/model";
constexpr const char *type_path = "/runtime/hw/type";
constexpr const char *customer_path = "/runtime/hw/customer_id";
constexpr const char *reference_path =
    "/InternetGatewayDevice/X_ORVANE_OMCI/IPHost/InterfaceReference";

// The library reads each fact once.
class Device : public ConfigTest {
protected:
    void SetUp() override {
        ZAN_NEEDS_NEW_PROCESS();
        ConfigTest::SetUp();
    }

    void reads(const std::string &value) { daemon.once(class_cfg, cmd_get, answer(value)); }
    void is_refused() { daemon.once(class_cfg, cmd_get, negative(-9)); }

    std::vector<std::string> asked() { return daemon.take_payloads(); }
};

using Paths = std::vector<std::string>;

// ---- facts -----------------------------------------------------------------

struct Fact {
    const char *name;
    int (*get)();
    const char *path;
};

std::ostream &operator<<(std::ostream &out, const Fact &fact) {
    return out << fact.name;
}

class DeviceFact : public Device, public testing::WithParamInterface<Fact> {};
INSTANTIATE_TEST_SUITE_P(Of, DeviceFact,
                         testing::Values(Fact{"model", cfg_get_hw_model, model_path},
                                         Fact{"type", cfg_get_hw_type, type_path},
                                         Fact{"customer_id", cfg_get_customer_id, customer_path}),
                         [](const auto &fact) { return fact.param.name; });

TEST_P(DeviceFact, IsReadOnce) {
    reads("29");
    EXPECT_EQ(GetParam().get(), 29);
    EXPECT_TRUE(same_record(sent(), request(cmd_get, GetParam().path)));
    EXPECT_EQ(GetParam().get(), 29);
    EXPECT_EQ(asked(), Paths{});
}

TEST_P(DeviceFact, IsAskedForAgainWhileItIsZero) {
    reads("0");
    EXPECT_EQ(GetParam().get(), 0);
    is_refused();
    StdoutCapture output;
    EXPECT_EQ(GetParam().get(), 0);
    EXPECT_EQ(output.stop(), "cfg_getint failed for " + std::string(GetParam().path) + "\n");
    reads("-3");
    EXPECT_EQ(GetParam().get(), -3);
    EXPECT_EQ(GetParam().get(), -3);
    EXPECT_EQ(asked(), Paths(3, GetParam().path));
}

TEST_P(DeviceFact, IsForgottenByTheFirstInitialisationOnly) {
    cfg_hw_id_info_init();
    reads("5");
    EXPECT_EQ(GetParam().get(), 5);
    cfg_hw_id_info_init();
    EXPECT_EQ(GetParam().get(), 5);
    EXPECT_EQ(asked(), Paths{GetParam().path});
}

// Each keeps its own.
TEST_F(Device, HasThreeFacts) {
    reads("1");
    reads("2");
    reads("3");
    EXPECT_EQ(cfg_get_hw_model(), 1);
    EXPECT_EQ(cfg_get_hw_type(), 2);
    EXPECT_EQ(cfg_get_customer_id(), 3);
    EXPECT_EQ(cfg_get_hw_model(), 1);
    EXPECT_EQ(cfg_get_hw_type(), 2);
    EXPECT_EQ(cfg_get_customer_id(), 3);
    EXPECT_EQ(asked(), (Paths{model_path, type_path, customer_path}));
}

TEST_F(Device, MayBeAskedByThreadsAtOnce) {
    daemon.on(class_cfg, cmd_get, answer("7"));
    int models[2] = {};
    std::thread other([&] { models[0] = cfg_get_hw_model(); });
    models[1] = cfg_get_hw_model();
    other.join();
    EXPECT_EQ(models[0], 7);
    EXPECT_EQ(models[1], 7);
}

// ---- what follows from them ------------------------------------------------

struct CustomisationRow {
    const char *customer_id;
    int customize;
};

std::ostream &operator<<(std::ostream &out, const CustomisationRow &row) {
    return out << row.customer_id;
}

class Customisation : public Device, public testing::WithParamInterface<CustomisationRow> {};
INSTANTIATE_TEST_SUITE_P(OfCustomer, Customisation,
                         testing::Values(CustomisationRow{"0", 0}, CustomisationRow{"1", 1},
                                         CustomisationRow{"2", 2}, CustomisationRow{"3", 2},
                                         CustomisationRow{"4", 2}, CustomisationRow{"5", 5},
                                         CustomisationRow{"47", 47}, CustomisationRow{"48", 27},
                                         CustomisationRow{"49", 49}, CustomisationRow{"-1", -1}),
                         [](const auto &row) {
                             const std::string id = row.param.customer_id;
                             return id == "-1" ? "minus_1" : id;
                         });

TEST_P(Customisation, FollowsFromTheCustomerId) {
    reads(GetParam().customer_id);
    EXPECT_EQ(cfg_get_customize(), GetParam().customize);
    EXPECT_EQ(asked(), Paths{customer_path});
}

struct WanTypeRow {
    const char *model;
    const char *customer_id;
    const char *config_type;
    int type;
};

std::ostream &operator<<(std::ostream &out, const WanTypeRow &row) {
    return out << row.config_type;
}

class WanType : public Device, public testing::WithParamInterface<WanTypeRow> {};
INSTANTIATE_TEST_SUITE_P(
    Of, WanType,
    testing::Values(WanTypeRow{"29", "14", "Ethernet", 1}, WanTypeRow{"29", "14", "xPON", 2},
                    WanTypeRow{"29", "14", "xpon", 0}, WanTypeRow{"29", "14", "xPON ", 0},
                    WanTypeRow{"29", "14", "Ethernet2", 0}, WanTypeRow{"29", "14", "", 0}));

TEST_P(WanType, FollowsFromTheConfigurationType) {
    reads(GetParam().model);
    reads(GetParam().customer_id);
    reads(GetParam().config_type);
    EXPECT_EQ(cfg_get_q47_wantype(), GetParam().type);
    EXPECT_EQ(asked(), (Paths{model_path, customer_path, "/sys/config_type"}));
}

TEST_F(Device, OfAnotherModelOrClassHasNoWanType) {
    reads("28");
    EXPECT_EQ(cfg_get_q47_wantype(), 0);
    EXPECT_EQ(asked(), Paths{model_path});
}

TEST_F(Device, OfAnotherClassHasNoWanType) {
    reads("29");
    reads("15");
    EXPECT_EQ(cfg_get_q47_wantype(), 0);
    EXPECT_EQ(asked(), (Paths{model_path, customer_path}));
}

TEST_F(Device, WithoutAConfigurationTypeHasNoWanType) {
    reads("29");
    reads("14");
    is_refused();
    EXPECT_EQ(cfg_get_q47_wantype(), 0);
    // It takes 31 characters, and no more.
    StdoutCapture output;
    reads("Ethernet" + std::string(40, 'x'));
    EXPECT_EQ(cfg_get_q47_wantype(), 0);
    EXPECT_EQ(output.stop(), overflow_warning("Ethernet" + std::string(23, 'x')));
}

// ---- the OMCI IP host ------------------------------------------------------

class IpHost : public Device {
protected:
    static int is_connection(std::string name) { return cfg_is_iphost_conn(name.data()); }
    void converts_to(const std::string &name) {
        daemon.once(class_cfg, cmd_convert_path, answer(name));
    }
};

TEST_F(IpHost, IsTheInterfaceWhoseNameContainsTheReference) {
    const struct {
        const char *name;
        const char *reference;
        int result;
    } rows[] = {{"ppp0", "ppp0", 1},  {"nas0_ppp0.1", "ppp0", 1},
                {"ppp0", "ppp01", 0}, {"ppp", "ppp0", 0},
                {"PPP0", "ppp0", 0},  {"ppp0", "", 0},
                {"", "", 0},          {"", "ppp0", 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + " and " + row.reference);
        reads(row.reference);
        EXPECT_EQ(is_connection(row.name), row.result);
        EXPECT_EQ(asked(), Paths{reference_path});
    }
}

TEST_F(IpHost, IsComparedWithThePathConverted) {
    leave_traces();
    converts_to("/InternetGatewayDevice/WANDevice:1/Name");
    reads("WANDevice:1");
    EXPECT_EQ(is_connection("/WAN:1"), 1);
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_TRUE(same_record(records[0], request(cmd_convert_path, "2/WAN:1")));
    EXPECT_TRUE(same_record(records[1], request(cmd_get, reference_path)));
}

TEST_F(IpHost, TakesAPathForAFormatOnceMore) {
    is_connection("/a%%b%d/%");
    EXPECT_EQ(asked(), (Paths{"2/a%b%d/%", reference_path}));
    is_connection("a%%b"); // no path
    EXPECT_EQ(asked(), Paths{reference_path});
}

TEST_F(IpHost, IsNoneWhenThePathCannotBeConverted) {
    daemon.once(class_cfg, cmd_convert_path, negative(-4));
    reads("/WAN:1");
    EXPECT_EQ(is_connection("/WAN:1"), 0);
}

TEST_F(IpHost, IsNoneWhenTheReferenceCannotBeRead) {
    is_refused();
    EXPECT_EQ(is_connection("ppp0"), 0);
    EXPECT_EQ(cfg_is_iphost_conn(nullptr), 0);
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(is_connection("ppp0"), 0);
}

TEST_F(IpHost, CutsWhatItIsGiven) {
    StdoutCapture output;
    const std::string name = path_of(1100).substr(1);
    std::string without_slash = name;
    for (char &c : without_slash)
        c = c == '/' ? '-' : c;
    reads(without_slash.substr(0, 1023));
    EXPECT_EQ(is_connection(without_slash), 1);
    reads(without_slash.substr(1023, 40));
    EXPECT_EQ(is_connection(without_slash), 0);
    daemon.forget_records();
    reads("x");
    is_connection("/" + name);
    EXPECT_EQ(daemon.records()[0].payload(), "2" + ("/" + name).substr(0, 1022));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(IpHost, CutsTheConvertedPath) {
    StdoutCapture output;
    const std::string converted = path_of(1500);
    converts_to(converted);
    reads(converted.substr(0, 1023));
    EXPECT_EQ(is_connection("/WAN:1"), 1);
    for (const std::size_t first : {1000U, 1023U, 1400U}) {
        SCOPED_TRACE(first);
        converts_to(converted);
        reads(converted.substr(first, 30));
        EXPECT_EQ(is_connection("/WAN:1"), 0);
    }
    EXPECT_EQ(output.stop(), "");
}

} // namespace
} // namespace zan::test
