#include "JavaText.h"

#include "platform.h"

#include <algorithm>
#include <cstring>

namespace {

// ---------------------------------------------------------------- by characters

constexpr uint64_t EACH_ONE = 0x0001000100010001;
constexpr uint64_t EACH_BEYOND_ASCII = 0xFF80FF80FF80FF80;
constexpr uint64_t EACH_BORROWED = 0x8000800080008000;
constexpr jsize AT_ONCE = sizeof(uint64_t) / sizeof(jchar);

// Four characters that are one byte each, which NUL is not; false, and nothing written, if they are others.
bool narrowFour(const char *units, char *bytes) {
    uint64_t four;
    memcpy(&four, units, sizeof(four));
    if ((four & EACH_BEYOND_ASCII) != 0 || ((four - EACH_ONE) & EACH_BORROWED) != 0) {
        return false;
    }
    four = (four | four >> 8) & 0x0000FFFF0000FFFF;
    const auto narrow = static_cast<uint32_t>(four | four >> 16);
    memcpy(bytes, &narrow, sizeof(narrow));
    return true;
}

char *encode(jchar unit, char *to) {
    if (unit != 0 && unit < 0x80) {
        *to++ = static_cast<char>(unit);
        return to;
    }
    if (unit < 0x800) {
        *to++ = static_cast<char>(0xC0 | unit >> 6);
    } else {
        *to++ = static_cast<char>(0xE0 | unit >> 12);
        *to++ = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
    }
    *to++ = static_cast<char>(0x80 | (unit & 0x3F));
    return to;
}

// The units stand at the end of the room: what is written never reaches one that is still to be read, since
// none takes more than three bytes.
int32_t copyUnits(JNIEnv *env, jstring text, jsize chars, char *room) {
    const auto end = reinterpret_cast<uintptr_t>(room) + utf8Room(chars);
    char *units = room + utf8Room(chars) - end % sizeof(jchar) - static_cast<size_t>(chars) * sizeof(jchar);
    env->GetStringRegion(text, 0, chars, reinterpret_cast<jchar *>(units));
    char *to = room;
    jsize done = 0;
    while (done < chars) {
        const char *from = units + static_cast<size_t>(done) * sizeof(jchar);
        if (chars - done >= AT_ONCE && narrowFour(from, to)) {
            to += AT_ONCE;
            done += AT_ONCE;
        } else {
            jchar unit;
            memcpy(&unit, from, sizeof(unit));
            to = encode(unit, to);
            ++done;
        }
    }
    return static_cast<int32_t>(to - room);
}

// ---------------------------------------------------------------- by bytes

// The JVM need not put a NUL behind what it copies. The range is valid, so there is no exception either.
int32_t copyBytes(JNIEnv *env, jstring text, jsize chars, char *room) {
    memset(room + chars, 0, utf8Room(chars) - static_cast<size_t>(chars));
    env->GetStringUTFRegion(text, 0, chars, room);
    // One byte for each character is the usual case, and cheap to see.
    return chars + static_cast<int32_t>(strlen(room + chars));
}

// ---------------------------------------------------------------- which of them

using Copy = int32_t (*)(JNIEnv *, jstring, jsize, char *);

// Of several runs the shortest, microseconds: neighbours only lengthen one.
int64_t timeOf(JNIEnv *env, jstring text, jsize chars, Copy copy) {
    constexpr int RUNS = 9;
    constexpr int COPIES = 100;
    char room[512];
    int64_t best = INT64_MAX;
    for (int run = 0; run < RUNS && utf8Room(chars) <= sizeof(room); ++run) {
        const int64_t began = monotonicMicros();
        for (int i = 0; i < COPIES; ++i) {
            copy(env, text, chars, room);
        }
        best = std::min(best, monotonicMicros() - began);
    }
    return best;
}

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// `size` counts the NUL. Lowers it so that `text` does not end in a broken character.
int32_t trimToCharacter(const char *text, int32_t size) {
    while (size > 1 && isContinuation(text[size - 1])) {
        --size;
    }
    return size;
}

} // namespace

Relaxed<bool> stringsByUnits{false};

void chooseStringAccess(JNIEnv *env) {
    constexpr char USUAL[] = "select name, price from item where shop = ? and kind in (?, ?, ?) order by 1";
    jstring text = env->NewStringUTF(USUAL);
    if (text == nullptr) {
        env->ExceptionClear();
        return;
    }
    stringsByUnits =
        timeOf(env, text, sizeof(USUAL) - 1, copyUnits) < timeOf(env, text, sizeof(USUAL) - 1, copyBytes);
    env->DeleteLocalRef(text);
}

jsize charsWithin(JNIEnv *env, jstring text, int32_t limit) {
    return std::min<jsize>(env->GetStringLength(text), std::max(limit, 1)); // of at least one byte each
}

int32_t utf8Region(JNIEnv *env, jstring text, jsize chars, char *room, int32_t limit, CutAt cut) {
    const int32_t length =
        stringsByUnits ? copyUnits(env, text, chars, room) : copyBytes(env, text, chars, room);
    limit = std::max(limit, 1);
    if (length < limit) {
        room[length] = '\0';
        return length;
    }
    const int32_t size = cut == CutAt::Character ? trimToCharacter(room, limit) : limit;
    room[size - 1] = '\0';
    return size - 1;
}
