#include "ZykEncryptor.h"

#include "ProbeLgKit.h"
#include "RegularFile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr char KEY[] = "k#Tq9!mZ&2vL$xW";
constexpr char PERMIT[] = "p7%Rw!c#u&Gn^4e*Yb$ad";
constexpr int KEY_LENGTH = sizeof(KEY) - 1;
constexpr int LONGEST_DATA = KEY_LENGTH * ZykEncryptor::maxPasswordLength * 3;
constexpr unsigned char END = 0xFF;

static_assert(LONGEST_DATA < static_cast<int>(ZykEncryptor::FILE_BYTES),
              "the walk over data ends in their buffer");

struct Freed {
    void operator()(void *memory) const { free(memory); }
};
using Bytes = std::unique_ptr<unsigned char[], Freed>;
using Chars = std::unique_ptr<char[], Freed>;

// With room for the end, which is set.
unsigned char *newData(int length) {
    auto *data = static_cast<unsigned char *>(malloc(static_cast<size_t>(length) + 1));
    if (data != nullptr) {
        data[length] = END;
    }
    return data;
}

template <typename T>
T *newBuffer() {
    return static_cast<T *>(calloc(ZykEncryptor::FILE_BYTES + 1, 1));
}

} // namespace

ZykEncryptor::ZykEncryptor() : key(strdup(KEY)), permit(strdup(PERMIT)) {}

ZykEncryptor::~ZykEncryptor() {
    free(key);
    free(permit);
}

bool ZykEncryptor::isPermitted(const char *word) const {
    return word != nullptr && permit != nullptr && strcmp(word, permit) == 0;
}

// ---------------------------------------------------------------- scrambling

unsigned char *ZykEncryptor::makeHalves(const char *input, int len) {
    unsigned char *halves = input != nullptr ? newData(2 * len) : nullptr;
    for (int i = 0; halves != nullptr && i < len; ++i) {
        const auto byte = static_cast<unsigned char>(input[i]);
        halves[2 * i] = byte >> 4;
        halves[2 * i + 1] = byte & 0x0F;
    }
    return halves;
}

char *ZykEncryptor::joinHalves(const unsigned char *input, int len) {
    auto *text = static_cast<char *>(malloc(static_cast<size_t>(len / 2) + 1));
    for (int i = 0; text != nullptr && i < len / 2; ++i) {
        text[i] = static_cast<char>(input[2 * i] << 4 | (input[2 * i + 1] & 0x0F));
    }
    if (text != nullptr) {
        text[len / 2] = '\0';
    }
    return text;
}

unsigned char *ZykEncryptor::encrypt(const unsigned char *input, int len) const {
    unsigned char *data = key != nullptr ? newData(KEY_LENGTH * len) : nullptr;
    for (int i = 0; data != nullptr && i < len * KEY_LENGTH; ++i) {
        data[i] = XOR(input[i / KEY_LENGTH], static_cast<unsigned char>(key[i % KEY_LENGTH]));
    }
    return data;
}

unsigned char *ZykEncryptor::decrypt(const unsigned char *input, int len) const {
    const int count = len / KEY_LENGTH;
    if (len % (2 * KEY_LENGTH) != 0) { // every character has two halves
        messageError(1034, "Encrypted password string is corrupt");
        return nullptr;
    }
    Bytes halves(key != nullptr ? newData(count) : nullptr);
    for (int i = 0; halves != nullptr && i < count * KEY_LENGTH; ++i) {
        const unsigned char half = XOR(input[i], static_cast<unsigned char>(key[i % KEY_LENGTH]));
        unsigned char &expected = halves[static_cast<size_t>(i / KEY_LENGTH)];
        expected = i % KEY_LENGTH == 0 ? half : expected;
        if (half != expected || half > 0x0F) {
            messageError(1035, "Error occured during decryption");
            return nullptr;
        }
    }
    return halves.release();
}

int ZykEncryptor::getLength(const unsigned char *input) const {
    int length = 0;
    while (input != nullptr && length < LONGEST_DATA && input[length] != END) {
        ++length;
    }
    if (length == LONGEST_DATA) {
        messageError(1028, "The input string is corrupt");
        return 0;
    }
    return length;
}

unsigned char *ZykEncryptor::encode(const char *input) const {
    if (input == nullptr) {
        return nullptr;
    }
    const int length = static_cast<int>(strlen(input));
    const Bytes halves(makeHalves(input, length));
    if (halves == nullptr || getLength(halves.get()) != 2 * length) {
        messageError(1019, "Error occured during encryption");
        return nullptr;
    }
    return encrypt(halves.get(), 2 * length);
}

char *ZykEncryptor::decode(const unsigned char *input, const char *p) const {
    if (input == nullptr || !isPermitted(p)) {
        return nullptr;
    }
    const int length = getLength(input);
    if (input[length] != END) {
        return nullptr;
    }
    const Bytes halves(decrypt(input, length));
    return halves != nullptr ? joinHalves(halves.get(), length / KEY_LENGTH) : nullptr;
}

// ---------------------------------------------------------------- the file

int ZykEncryptor::writeToFile(const char *filename, const char *admin, const unsigned char *pswd,
                              int paswdLen) {
    if (filename == nullptr || admin == nullptr || pswd == nullptr) {
        messageError(1026, "Invalid file name or user id or password");
        return -1;
    }
    FILE *file = createRegularFile(filename, nullptr);
    if (file == nullptr) {
        messageError(1027, "Could not open the file for writing, %s", filename);
        return -1;
    }
    fputs(admin, file);
    fputc(':', file);
    fwrite(pswd, 1, static_cast<size_t>(paswdLen), file);
    fclose(file);
    return 0;
}

// What is not read leaves NULs behind what was.
int ZykEncryptor::readFromFile(const char *filename, char *user, unsigned char *pswd, const char *pmt) const {
    if (!isPermitted(pmt)) {
        return -1;
    }
    if (filename == nullptr) {
        messageError(1022, "Invalid file name");
        return -1;
    }
    if (user == nullptr || pswd == nullptr) {
        messageError(1023, "Invalid userid or password");
        return -1;
    }
    FILE *file = openRegularFile(filename, nullptr, FILE_BYTES);
    if (file == nullptr) {
        messageError(1024, "Could not open the file %s", filename);
        return -1;
    }
    const Chars whole(newBuffer<char>());
    const size_t length = whole != nullptr ? fread(whole.get(), 1, FILE_BYTES, file) : 0;
    fclose(file);
    if (length == 0) {
        messageError(1025, "No data in file %s", filename);
        return -1;
    }
    const char *end = whole.get() + length;
    const char *colon = std::find(static_cast<const char *>(whole.get()), end, ':');
    const char *userEnd = colon != end ? colon : whole.get();
    *std::copy(static_cast<const char *>(whole.get()), userEnd, user) = '\0';
    memset(pswd, 0, FILE_BYTES);
    std::copy(userEnd + 1, end, reinterpret_cast<char *>(pswd));
    return 0;
}

namespace {

void copyCut(char *target, const char *text) {
    strncpy(target, text, ZykEncryptor::TEXT_BYTES - 1);
    target[ZykEncryptor::TEXT_BYTES - 1] = '\0';
}

} // namespace

int ZykEncryptor::getUidPaswdFromFile(const char *filename, char *user, char *pswd, const char *pmt) const {
    if (!isPermitted(pmt)) {
        return -1;
    }
    if (filename == nullptr) {
        messageError(1020, "Invalid file name");
        return -1;
    }
    if (user == nullptr || pswd == nullptr) {
        messageError(1021, "Invalid userid or password");
        return -1;
    }
    const Chars wholeUser(newBuffer<char>());
    const Bytes scrambled(newBuffer<unsigned char>());
    if (wholeUser == nullptr || scrambled == nullptr ||
        readFromFile(filename, wholeUser.get(), scrambled.get(), pmt) != 0) {
        return -1;
    }
    copyCut(user, wholeUser.get());
    const Chars clear(decode(scrambled.get(), pmt));
    if (clear == nullptr) {
        return -1;
    }
    copyCut(pswd, clear.get());
    return 0;
}

bool ZykEncryptor::isWritten(const char *uid, const char *inputPswd, const char *filename) const {
    const Chars user(newBuffer<char>());
    const Bytes scrambled(newBuffer<unsigned char>());
    if (user == nullptr || scrambled == nullptr ||
        readFromFile(filename, user.get(), scrambled.get(), permit) != 0) {
        return false;
    }
    const Chars clear(decode(scrambled.get(), permit));
    const bool sameUser = strcmp(user.get(), uid) == 0;
    const bool samePassword = clear != nullptr && strcmp(clear.get(), inputPswd) == 0;
    if (!sameUser) {
        messageError(1031, "User id read from file is not same as uid entered");
    }
    if (!samePassword) {
        messageError(1032, "Password read from file is not same as Password entered");
    }
    return sameUser && samePassword;
}

void ZykEncryptor::generatePasswordFile(const char *uid, const char *inputPswd, const char *filename) const {
    if (uid == nullptr || inputPswd == nullptr || filename == nullptr) {
        messageError(1029, "UID or PASSWORD or filename is NULL");
        return;
    }
    if (strlen(inputPswd) > maxPasswordLength) {
        messageError(1036, "Password is too long. It should be less than %d chars", maxPasswordLength);
        return;
    }
    const Bytes scrambled(encode(inputPswd));
    const Chars clear(decode(scrambled.get(), permit));
    if (scrambled == nullptr || clear == nullptr) {
        return;
    }
    const int length = getLength(scrambled.get());
    printf("Encrypted password: %.*s \n", length, reinterpret_cast<const char *>(scrambled.get()));
    printf("Decrypted password: %s \n", clear.get());
    fflush(stdout);
    if (strcmp(clear.get(), inputPswd) != 0) {
        messageError(1030, "Your actual password and decrypted password don't match");
        return;
    }
    if (writeToFile(filename, uid, scrambled.get(), length + 1) == 0 && isWritten(uid, inputPswd, filename)) {
        messageInfo(1033, "password file %s was properly created", filename);
    }
}
