// One first-failure incident: a fresh directory below the handler's base directory with copies of the listed
// files and the record that set it off. Runs on the toolkit's own thread. Never deletes anything: when the
// base directory holds as many incidents as allowed, further ones are skipped until somebody has cleared it.
#pragma once

#include "lgkit/lgkit.h"

namespace lgffdc {

// The LgkIncidentFunction of this library.
void recordIncident(LgkObject *handler, const char *record, const char *logDirectory) noexcept;

} // namespace lgffdc
