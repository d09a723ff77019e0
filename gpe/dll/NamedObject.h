// Virtual base of the long-lived classes: carries a heap copy of the class's name for log lines.
#pragma once

class NamedObject {
public:
    explicit NamedObject(const char *className);
    virtual ~NamedObject();
    NamedObject(const NamedObject &) = delete;
    NamedObject &operator=(const NamedObject &) = delete;

    const char *objectName() const { return name != nullptr ? name : ""; }

protected:
    // One line of the trace log: "[object (function@line)] text".
    void info(const char *function, int line, const char *text) const;
    void warn(const char *function, int line, const char *text) const;
    void error(const char *function, int line, const char *text) const;

private:
    char *name;
};
