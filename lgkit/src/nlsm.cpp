#include "lgkit/nlsm.h"

#include "Catalogues.h"

int nls_set_dir(const char *directory) {
    if (directory == nullptr || *directory == '\0') {
        return 0;
    }
    try {
        nlsm::Catalogues::instance().readEnvironment();
        return 1;
    } catch (...) {
        return 0;
    }
}

const char *nls_message(const char *catalog, int set, int number, const char *defaultText) {
    if (catalog == nullptr || *catalog == '\0' || set <= 0 || number <= 0) {
        return defaultText;
    }
    try {
        return nlsm::Catalogues::instance().message(catalog, set, number, defaultText);
    } catch (...) {
        return defaultText;
    }
}
