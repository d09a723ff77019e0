// All objects of the toolkit, by name. Thread-safe. Objects are made when a property file is applied and stay
// to the end of the process: callers keep bare pointers to them, and threads may still log while the process
// exits.
#pragma once

#include "LgkObject.h"
#include "PropertyFile.h"

#include <memory>

namespace lgkit {

class ObjectStore {
public:
    // The one store. Never destroyed.
    static ObjectStore &instance();

    // Null if there is no object of that name.
    LgkObject *find(const std::string &name) const;

    // Makes the objects that the file names, sets their properties. Values that are refused join
    // `brokenLines`.
    void apply(PropertyFile &file);

private:
    LgkObject &obtain(const std::string &name, const std::string &type);

    mutable std::mutex lock_; // guards objects_, not the objects
    std::map<std::string, std::unique_ptr<LgkObject>> objects_;
};

} // namespace lgkit
