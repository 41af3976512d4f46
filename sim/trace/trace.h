// SPDX-License-Identifier: MIT
#pragma once

#include "base/log.h"
#include "transport/record.h"
#include "transport/transport.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace zan::sim {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Shows each record as it comes and goes: as readable lines on standard output, as
// JSON lines in a file, both or neither.
class Trace final : public Log {
public:
    Trace() = default;
    Trace(bool readable, File json) : readable_(readable), json_(std::move(json)) {}

    void received(const Peer &peer, const Received &received);
    void sent(const Peer &peer, const Record &record);

    void note(std::string_view text) override;
    void warn(std::string_view text) override;

private:
    enum class Direction { in, out };

    void record(Direction direction, const Peer &peer, const Record &record,
                std::string_view error);
    void print(const std::string &line);
    void print_json(const std::string &line);

    bool readable_ = false;
    File json_;
};

// The payload as the trace shows it; exposed for tests.
std::string readable_payload(const Record &record, bool outgoing);

} // namespace zan::sim
