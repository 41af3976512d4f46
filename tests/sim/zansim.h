// SPDX-License-Identifier: MIT
#pragma once

#include "support/commands.h"
#include "support/program.h"
#include "support/raw.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zan::test {

std::string zansim_path();
std::string device_file();

// A tree file under /tmp.
std::string tree_file(std::string_view json);

// The bytes of a number as it stands in a record.
std::string number_bytes(std::int32_t number);

// The payload that subscribes to a path.
std::string watch_payload(int flag, int option, std::string_view path);

// The payload of a file-and-action request.
std::string action_payload(int code, int wait, int param, std::string_view name);

// zansim as a program of its own, ready to serve.
class Zansim {
public:
    explicit Zansim(const std::string &tree, const std::vector<std::string> &options = {});

    Program &program() { return program_; }
    pid_t pid() const { return program_.pid(); }
    int request_queue() const { return request_queue_; }
    int answer_queue() const { return answer_queue_; }

    // Ends it as a person would, unless it has ended: its exit code.
    int stop();

private:
    Program program_;
    int request_queue_ = -1;
    int answer_queue_ = -1;
};

// The next record of this type, waited for; a failed test when none comes.
SizedRecord await_record(int qid, long msgtyp);

// A module by plain system calls: a queue and a name.
class RawModule {
public:
    RawModule(const Zansim &zansim, std::string name) : zansim_(zansim), name_(std::move(name)) {}

    int queue() const { return queue_.id(); }
    const std::string &name() const { return name_; }
    void remove_queue() { queue_.remove(); }

    // A request of this module, well-formed.
    Fields request(int type, int cmd, std::string payload) const;

    // Waits while the request queue is full.
    void send(const SizedRecord &record) const;
    void send(const Fields &fields) const { send(make_record(fields)); }

    // Sends a request and waits for its answer.
    SizedRecord call(int type, int cmd, std::string payload) const;
    SizedRecord call(const SizedRecord &record) const;

    // Registers or unregisters the queue under the name.
    SizedRecord announce(int cmd, int instance = 0) const;

    SizedRecord get(std::string path) const { return call(class_cfg, cmd_get, std::move(path)); }
    SizedRecord set(const std::string &path, const std::string &value) const {
        return call(class_cfg, cmd_set, "0" + path + " " + value);
    }

    // The text of a notification, waited for.
    SizedRecord notification() const { return await_record(queue_.id(), class_notify); }

    // What has come without being asked for: as many records as had been sent when
    // zansim answered a further request.
    std::vector<SizedRecord> notifications() const;

    // The answer that zansim owes to a request.
    Fields answer(int type, int cmd, int result, std::string payload = {}) const;

private:
    const Zansim &zansim_;
    std::string name_;
    RawQueue queue_;
};

// zansim on a small tree, and one registered module.
class ZansimTest : public testing::Test {
protected:
    void SetUp() override;
    // Ends zansim as a person would, so that a sanitizer's verdict counts.
    void TearDown() override;

    // Starts it on another tree, or with options, instead of the usual ones.
    void start(const std::string &tree, const std::vector<std::string> &options = {});

    Zansim &zansim() { return *zansim_; }
    RawModule &module() { return *module_; }

    // What zansim wrote on standard error, without what it says of the kernel's
    // limits, which are not everywhere the test's own.
    std::string errors();

    std::unique_ptr<RawModule> another_module(const std::string &name) const;

    // The texts that were told to a module, a line each.
    static std::string told(const RawModule &watcher);

    // Expects zansim to refuse with this code and text, and to serve on.
    void expect_refused(const SizedRecord &answer, int type, int cmd, int code,
                        const std::string &text);
    void expect_value(const std::string &path, const std::string &value);

    bool autostart_ = true;

private:
    std::unique_ptr<Zansim> zansim_;
    std::unique_ptr<RawModule> module_;
};

} // namespace zan::test
