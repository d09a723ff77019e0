#include "ObjectStore.h"

namespace lgkit {

namespace {

// What an object is when the file does not say `type`: its name's first words tell.
std::string typeByName(const std::string &name) {
    static constexpr struct {
        const char *prefix;
        const char *type;
    } kinds[] = {
        {"logger.", loggerType},
        {"handler.file.", fileHandlerType},
        {"handler.ffdc.", ffdcHandlerType},
    };
    for (const auto &kind : kinds) {
        if (name.rfind(kind.prefix, 0) == 0) {
            return kind.type;
        }
    }
    return "lgk_settings";
}

std::map<std::string, std::string> typesNamedIn(const PropertyFile &file) {
    std::map<std::string, std::string> types;
    for (const Property &property : file.properties) {
        if (property.name == "type") {
            types[property.object] = property.value;
        }
    }
    return types;
}

} // namespace

ObjectStore &ObjectStore::instance() {
    static ObjectStore *store = new ObjectStore;
    return *store;
}

LgkObject *ObjectStore::find(const std::string &name) const {
    std::lock_guard<std::mutex> guard(lock_);
    const auto found = objects_.find(name);
    return found == objects_.end() ? nullptr : found->second.get();
}

LgkObject &ObjectStore::obtain(const std::string &name, const std::string &type) {
    std::lock_guard<std::mutex> guard(lock_);
    std::unique_ptr<LgkObject> &object = objects_[name];
    if (!object) {
        object = std::make_unique<LgkObject>(name, type);
    }
    return *object;
}

void ObjectStore::apply(PropertyFile &file) {
    const std::map<std::string, std::string> types = typesNamedIn(file);
    for (const Property &property : file.properties) {
        const auto named = types.find(property.object);
        LgkObject &object =
            obtain(property.object, named == types.end() ? typeByName(property.object) : named->second);
        if (!object.set(property.name, property.value)) {
            file.brokenLines.push_back(property.line);
        }
    }
}

} // namespace lgkit
