// Takes finished records to the handlers of their loggers. Used by the worker thread only, so nothing here is
// locked; the objects it reads lock themselves. Handlers that a logger names but nobody defined are skipped.
#pragma once

#include "FileTarget.h"
#include "Record.h"
#include "lgkit/lgkit.h"

#include <atomic>
#include <vector>

namespace lgkit {

class RecordWriter {
public:
    // Called for each first-failure handler of a logger that wrote an error. Settable from any thread.
    static std::atomic<LgkIncidentFunction> incidentFunction;

    void write(const Record &record);
    void flush();

private:
    struct Route {
        unsigned version = ~0u; // of the logger, as last read
        std::vector<FileTarget *> files;
        std::vector<LgkObject *> ffdcHandlers;
    };

    const Route &routeOf(const LgkObject &logger);
    FileTarget &targetOf(const LgkObject &handler);
    static void reportIncident(const Route &route, const Record &record);

    std::map<const LgkObject *, Route> routes_;
    std::map<const LgkObject *, FileTarget> targets_; // nodes stay where they are
};

} // namespace lgkit
