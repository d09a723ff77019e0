// Natives of ProbeUtils for the password file. Texts cross the border in the platform's bytes, as paths do.
#include "Inside.h"
#include "ZykEncryptor.h"
#include "jnihelp.h"

#include <cstdlib>

#define UTILS(name) Java_com_zykora_probe_ProbeUtils_##name

namespace {

// A heap copy for the length of a call; null for null.
class PlatformArgument {
public:
    PlatformArgument(JNIEnv *env, jstring text) : copy(text != nullptr ? platformCopy(env, text) : nullptr) {}
    ~PlatformArgument() { free(copy); }
    PlatformArgument(const PlatformArgument &) = delete;
    PlatformArgument &operator=(const PlatformArgument &) = delete;
    const char *get() const { return copy; }

private:
    char *const copy;
};

// One of the two texts of the file; null if there is none to be had.
jstring textOfFile(JNIEnv *env, jstring permit, jstring file, bool wantsPassword) {
    const Inside inside;
    if (!inside || permit == nullptr || file == nullptr) {
        return nullptr;
    }
    const PlatformArgument word(env, permit);
    const PlatformArgument path(env, file);
    char user[ZykEncryptor::TEXT_BYTES];
    char password[ZykEncryptor::TEXT_BYTES];
    const bool isRead = ZykEncryptor().getUidPaswdFromFile(path.get(), user, password, word.get()) == 0;
    return isRead ? newPlatformString(env, wantsPassword ? password : user) : nullptr;
}

} // namespace

extern "C" {

JNIEXPORT jstring JNICALL UTILS(getPassword)(JNIEnv *env, jclass, jstring permit, jstring file) {
    return textOfFile(env, permit, file, true);
}

JNIEXPORT jstring JNICALL UTILS(getUser)(JNIEnv *env, jclass, jstring permit, jstring file) {
    return textOfFile(env, permit, file, false);
}

// Prints the password to standard output.
JNIEXPORT void JNICALL UTILS(genPasswordFile)(JNIEnv *env, jclass, jstring uid, jstring password,
                                              jstring file) {
    const Inside inside;
    if (inside) {
        const PlatformArgument user(env, uid);
        const PlatformArgument clear(env, password);
        const PlatformArgument path(env, file);
        ZykEncryptor().generatePasswordFile(user.get(), clear.get(), path.get());
    }
}

} // extern "C"
