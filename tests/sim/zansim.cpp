// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"

#include <csignal>
#include <cstring>
#include <sstream>

namespace zan::test {

namespace {

constexpr char small_tree[] = R"({
  "sys": {
    "hostname": {"$value": "router", "$max": 16},
    "serial": {"$value": "4711", "$access": "ro"},
    "note": "",
    "level": {"$value": 4, "$range": [0, 7]},
    "counter": {"$value": 0, "$type": "uint"},
    "led": true,
    "mode": {"$value": "auto", "$enum": ["auto", "on", "off"]},
    "user": {
      "$instances": [{"name": "admin", "home": "/"}, {"name": "guest", "home": "/tmp"}],
      "$template": {"name": "", "home": "/"},
      "$max": 4
    },
    "port": {"$instances": [{"up": true}, {"up": false}], "$access": "ro"},
    "plain": [{"x": 1}]
  }
})";

} // namespace

std::string zansim_path() {
    return ZAN_TEST_ZANSIM;
}

std::string device_file() {
    return ZAN_TEST_DEVICE_FILE;
}

std::string tree_file(std::string_view json) {
    const std::string path = "/tmp/zan_tree.json";
    write_file(path, json);
    return path;
}

std::string number_bytes(std::int32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

std::string action_payload(int code, int wait, int param, std::string_view name) {
    std::string payload = number_bytes(code) + number_bytes(wait) + number_bytes(param);
    payload += name;
    payload.resize(1036);
    return payload;
}

std::string watch_payload(int flag, int option, std::string_view path) {
    std::string payload{static_cast<char>(flag), static_cast<char>(option)};
    payload += path;
    return payload;
}

namespace {

std::vector<std::string> command(const std::string &tree, const std::vector<std::string> &options) {
    std::vector<std::string> words{zansim_path()};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(tree);
    return words;
}

} // namespace

Zansim::Zansim(const std::string &tree, const std::vector<std::string> &options)
    : program_(command(tree, options)) {
    if (!program_.read_until("zansim: ready")) {
        ADD_FAILURE() << "zansim did not start: " << program_.error();
        return;
    }
    request_queue_ = std::stoi(read_file("/tmp/zan_qid"));
    answer_queue_ = std::stoi(read_file("/tmp/zan_req_qid"));
}

int Zansim::stop() {
    program_.signal(SIGTERM);
    return program_.wait();
}

SizedRecord await_record(int qid, long msgtyp) {
    std::optional<SizedRecord> record;
    if (!eventually([&] { return (record = raw_receive(qid, msgtyp)).has_value(); })) {
        ADD_FAILURE() << "no record of type " << msgtyp << " on queue " << qid;
        return {};
    }
    return *record;
}

namespace {

// Who serves a class.
const char *server_of(int type) {
    switch (type) {
    case class_cfg:
        return "ZAN_CFG";
    case class_cwmp:
        return "ZAN_CWMP";
    case class_action:
        return "ZAN_FAD";
    default:
        return "ZAN";
    }
}

} // namespace

Fields RawModule::request(int type, int cmd, std::string payload) const {
    return {.mtype = queue(),
            .type = type,
            .cmd = cmd,
            .dst = server_of(type),
            .src = name_,
            .pid = 4242,
            .payload = std::move(payload)};
}

void RawModule::send(const SizedRecord &record) const {
    if (!eventually([&] { return raw_send(zansim_.request_queue(), record); }))
        ADD_FAILURE() << "zansim does not read its queue";
}

SizedRecord RawModule::call(int type, int cmd, std::string payload) const {
    return call(make_record(request(type, cmd, std::move(payload))));
}

SizedRecord RawModule::call(const SizedRecord &record) const {
    send(record);
    return await_record(queue(), record.record.type());
}

SizedRecord RawModule::announce(int cmd, int instance) const {
    send(Fields{
        .mtype = queue(), .type = class_registration, .cmd = cmd, .src = name_, .pid = instance});
    return await_record(zansim_.answer_queue(), queue());
}

std::vector<SizedRecord> RawModule::notifications() const {
    // Requests are served in their order, so what this one finds was sent before.
    call(class_cfg, cmd_get, "/zansim/version");
    std::vector<SizedRecord> records;
    while (auto record = raw_receive(queue(), class_notify))
        records.push_back(*record);
    return records;
}

Fields RawModule::answer(int type, int cmd, int result, std::string payload) const {
    return {.mtype = type == class_registration ? queue() : type,
            .type = type,
            .cmd = cmd,
            .dst = name_,
            .src = server_of(type),
            .pid = zansim_.pid(),
            .result = result,
            .payload = std::move(payload)};
}

void ZansimTest::SetUp() {
    if (autostart_)
        start(tree_file(small_tree));
}

void ZansimTest::TearDown() {
    module_.reset();
    if (zansim_ && zansim_->program().running()) {
        EXPECT_EQ(zansim_->stop(), 0) << zansim_->program().error();
    }
    zansim_.reset();
}

void ZansimTest::start(const std::string &tree, const std::vector<std::string> &options) {
    TearDown();
    zansim_ = std::make_unique<Zansim>(tree, options);
    module_ = another_module("TESTER");
}

std::string ZansimTest::errors() {
    std::istringstream all(zansim().program().error());
    std::string kept;
    for (std::string line; std::getline(all, line);)
        if (line.find("cannot pass: sysctl") == std::string::npos)
            kept += line + '\n';
    return kept;
}

std::unique_ptr<RawModule> ZansimTest::another_module(const std::string &name) const {
    auto made = std::make_unique<RawModule>(*zansim_, name);
    EXPECT_EQ(made->announce(cmd_register).record.result(), 1);
    return made;
}

std::string ZansimTest::told(const RawModule &watcher) {
    std::string lines;
    for (const SizedRecord &record : watcher.notifications())
        lines += record.payload() + '\n';
    return lines;
}

void ZansimTest::expect_refused(const SizedRecord &answer, int type, int cmd, int code,
                                const std::string &text) {
    EXPECT_EQ(answer.record.type(), type);
    EXPECT_EQ(answer.record.cmd(), cmd);
    EXPECT_EQ(answer.record.result(), code);
    EXPECT_EQ(answer.payload(), text);
    EXPECT_TRUE(zansim().program().running());
}

void ZansimTest::expect_value(const std::string &path, const std::string &value) {
    const SizedRecord answer = module().get(path);
    EXPECT_EQ(answer.record.result(), 1) << answer.payload();
    EXPECT_EQ(answer.payload(), value);
}

} // namespace zan::test
