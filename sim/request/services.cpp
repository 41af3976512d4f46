// SPDX-License-Identifier: MIT
#include "request/services.h"

#include "base/text.h"
#include "request/action.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace zan::sim {

namespace {

struct ClassName {
    std::int32_t type;
    std::string_view name;
};

constexpr std::array classes{
    ClassName{ZAN_CLASS_CFG, "CFG"},
    ClassName{ZAN_CLASS_CWMP, "CWMP"},
    ClassName{ZAN_CLASS_REGISTRATION, "REGISTRATION"},
    ClassName{ZAN_CLASS_MESSAGE, "MESSAGE"},
    ClassName{ZAN_CLASS_NOTIFY, "NOTIFY"},
    ClassName{ZAN_CLASS_ACTION, "ACTION"},
    ClassName{ZAN_CLASS_CONTROL, "CONTROL"},
    ClassName{ZAN_CLASS_BROADCAST, "BROADCAST"},
};

// Constant before any row registers itself, so that the order of files does not matter.
constinit const ServiceRows *first_rows = nullptr;

template<typename Predicate> const Service *find_row(Predicate fits) {
    for (const ServiceRows *rows = ServiceRows::first(); rows != nullptr; rows = rows->next()) {
        const auto found = std::find_if(rows->rows().begin(), rows->rows().end(), fits);
        if (found != rows->rows().end())
            return &*found;
    }
    return nullptr;
}

// The name under which zansim answers requests of a class.
std::string_view answering_name(std::int32_t type) {
    switch (type) {
    case ZAN_CLASS_CFG:
        return "ZAN_CFG";
    case ZAN_CLASS_CWMP:
        return "ZAN_CWMP";
    case ZAN_CLASS_ACTION:
        return "ZAN_FAD";
    default:
        return "ZAN";
    }
}

} // namespace

std::string_view Request::text() const {
    return until_nul(record.payload);
}

Error no_such_module(std::string_view name) {
    return {unknown_module, "unknown module: " + escape(name)};
}

ServiceRows::ServiceRows(std::span<const Service> rows)
    : rows_(rows), next_(std::exchange(first_rows, this)) {}

const ServiceRows *ServiceRows::first() {
    return first_rows;
}

const Service *find_service(std::int32_t type, std::int32_t cmd) {
    return find_row([&](const Service &service) {
        return service.type == type && (service.cmd == cmd || service.cmd == any_command);
    });
}

std::string_view subject_of(const Record &request) {
    const Service *const service = find_service(request.type, request.cmd);
    const std::string_view payload = request.payload;
    const auto from = [&](std::size_t start) {
        return until_nul(payload.substr(std::min(start, payload.size())));
    };
    const auto word = [](std::string_view line) { return line.substr(0, line.find(' ')); };
    switch (service == nullptr ? PayloadForm::none : service->request) {
    case PayloadForm::path: {
        const std::string_view line = from(0);
        return line.substr(0, line.size() - (line.ends_with('#') ? 1 : 0));
    }
    case PayloadForm::first_word:
        return word(from(0));
    case PayloadForm::assignment:
        return word(from(1));
    case PayloadForm::conversion:
        return from(1);
    case PayloadForm::watch:
        return from(2);
    case PayloadForm::action:
        return from(offsetof(Action, name));
    case PayloadForm::none:
    case PayloadForm::text:
    case PayloadForm::event:
    case PayloadForm::bytes:
        break;
    }
    return {};
}

Record answer_to(const Requester &requester) {
    const Service *const service = find_service(requester.type, requester.cmd);
    const bool acknowledged = service != nullptr && service->reply == Reply::acknowledgement;
    Record answer;
    answer.type = requester.type;
    answer.cmd = acknowledged ? std::int32_t{ZAN_MESSAGE_ACK} : requester.cmd;
    answer.dst = requester.name;
    answer.src = answering_name(requester.type);
    answer.pid = getpid();
    answer.result = 1;
    return answer;
}

bool is_awaited(const Record &request) {
    const Service *const service = find_service(request.type, request.cmd);
    const Reply reply = service == nullptr ? Reply::same_command : service->reply;
    if (reply == Reply::if_waited ||
        (reply == Reply::by_handler && service->request == PayloadForm::action)) {
        const auto order = read_action(request);
        return !order || order->wait != 0;
    }
    return reply != Reply::none;
}

std::string_view class_name(std::int32_t type) {
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const ClassName &candidate) { return candidate.type == type; });
    return found == classes.end() ? std::string_view() : found->name;
}

std::optional<std::int32_t> class_by_name(std::string_view name) {
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const ClassName &candidate) { return candidate.name == name; });
    if (found == classes.end())
        return std::nullopt;
    return found->type;
}

bool is_command_name(std::string_view name, std::optional<std::int32_t> type) {
    return find_row([&](const Service &service) {
               return service.name == name && (!type || service.type == *type);
           }) != nullptr;
}

} // namespace zan::sim
