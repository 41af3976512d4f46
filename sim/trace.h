// SPDX-License-Identifier: MIT
#pragma once

#include "transport/peer.h"
#include "transport/record.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace zan::sim {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Tells of each record as it comes and goes: as lines for a person on standard
// output, as JSON lines in a file, both or neither.
class Trace {
public:
    Trace() = default;
    Trace(bool readable, File json) : readable_(readable), json_(std::move(json)) {}

    void received(const Peer &peer, const Received &received);
    void sent(const Peer &peer, const Record &record);

    // What happened beside records.
    void note(std::string_view text);

    // A note that is also a line on standard error.
    void warn(std::string_view text);

private:
    enum class Direction { in, out };

    void record(Direction direction, const Peer &peer, const Record &record,
                std::string_view defect);
    void print(const std::string &line);
    void print_json(const std::string &line);

    bool readable_ = false;
    File json_;
};

// The payload as the trace shows it; exposed for its tests.
std::string readable_payload(const Record &record, bool outgoing);

} // namespace zan::sim
