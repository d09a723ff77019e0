#include "RecordWriter.h"

#include "ObjectStore.h"

namespace lgkit {

namespace {

// The defined handlers that a logger's property "handlers" lists, separated by blanks or commas.
std::vector<LgkObject *> handlersOf(const LgkObject &logger) {
    constexpr const char *separators = " \t,";
    const std::string list = logger.get("handlers").value_or("");
    std::vector<LgkObject *> handlers;
    for (size_t start = list.find_first_not_of(separators); start != std::string::npos;) {
        const size_t end = list.find_first_of(separators, start);
        if (LgkObject *handler = ObjectStore::instance().find(list.substr(start, end - start))) {
            handlers.push_back(handler);
        }
        start = list.find_first_not_of(separators, end);
    }
    return handlers;
}

spdlog::details::log_msg asLine(const Record &record) {
    spdlog::details::log_msg line(record.time, {}, "", spdlog::level::info, record.text);
    line.thread_id = record.thread;
    return line;
}

} // namespace

std::atomic<LgkIncidentFunction> RecordWriter::incidentFunction{nullptr};

FileTarget &RecordWriter::targetOf(const LgkObject &handler) {
    return targets_.try_emplace(&handler, handler).first->second;
}

const RecordWriter::Route &RecordWriter::routeOf(const LgkObject &logger) {
    Route &route = routes_[&logger];
    const unsigned version = logger.version();
    if (version == route.version) {
        return route;
    }
    route.files.clear();
    route.ffdcHandlers.clear();
    for (LgkObject *handler : handlersOf(logger)) {
        if (handler->type == fileHandlerType) {
            route.files.push_back(&targetOf(*handler));
        } else if (handler->type == ffdcHandlerType) {
            route.ffdcHandlers.push_back(handler);
        }
    }
    route.version = version;
    return route;
}

void RecordWriter::reportIncident(const Route &route, const Record &record) {
    const LgkIncidentFunction report = incidentFunction.load(std::memory_order_relaxed);
    if (report == nullptr) {
        return;
    }
    const std::string directory = route.files.empty() ? "" : route.files.front()->directory();
    for (LgkObject *handler : route.ffdcHandlers) {
        report(handler, record.text.c_str(), directory.c_str());
    }
}

void RecordWriter::write(const Record &record) {
    const Route &route = routeOf(*record.logger);
    const spdlog::details::log_msg line = asLine(record);
    for (FileTarget *file : route.files) {
        file->write(line);
    }
    if (record.level >= errorLevel) {
        flush();
        reportIncident(route, record);
    }
}

void RecordWriter::flush() {
    for (auto &[handler, target] : targets_) {
        target.flush();
    }
}

} // namespace lgkit
