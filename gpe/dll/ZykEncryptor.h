// The file with a user id and a password for the Java side's connections. Its scrambling has a fixed key: it
// keeps a casual reader from seeing the password, and nobody else. Each byte of it stands fifteen times in
// the file, so that a change is found. Scrambled data are bytes without 0xFF, ended by one.
#pragma once

#include <cstddef>

class ZykEncryptor {
public:
    static constexpr int maxPasswordLength = 1000;
    // Bytes of the file that are read at most, and so of a user id and of scrambled data with all that may
    // stand behind them: what `readFromFile` needs of its caller, for each of them.
    static constexpr size_t FILE_BYTES = 64 * 1024;
    // What `getUidPaswdFromFile` needs: longer texts are cut.
    static constexpr size_t TEXT_BYTES = 50;

    ZykEncryptor();
    ~ZykEncryptor();
    ZykEncryptor(const ZykEncryptor &) = delete;
    ZykEncryptor &operator=(const ZykEncryptor &) = delete;

    // Results are the caller's (`free`); null for null, for data that were changed, and when memory is out.
    // `decode` needs the right word in `p`, which takes no part in the scrambling.
    unsigned char *encode(const char *input) const;
    char *decode(const unsigned char *input, const char *p) const;

    // Steps of both. `len` counts the data without their end.
    static unsigned char *makeHalves(const char *input, int len);
    static char *joinHalves(const unsigned char *input, int len);
    unsigned char *encrypt(const unsigned char *input, int len) const;
    unsigned char *decrypt(const unsigned char *input, int len) const;
    static unsigned char XOR(unsigned char a, unsigned char b) { return a ^ b; }
    // Bytes before the end; 0, and a message, if there is none within 45,000.
    int getLength(const unsigned char *input) const;

    // 0, or -1 after a message; without one, and without a look at the file, for a wrong word in `pmt`.
    int readFromFile(const char *filename, char *user, unsigned char *pswd, const char *pmt) const;
    static int writeToFile(const char *filename, const char *admin, const unsigned char *pswd, int paswdLen);
    int getUidPaswdFromFile(const char *filename, char *user, char *pswd, const char *pmt) const;

    // For an administrator at a console: the password is printed there, scrambled and clear.
    void generatePasswordFile(const char *uid, const char *inputPswd, const char *filename) const;

private:
    bool isPermitted(const char *word) const;
    bool isWritten(const char *uid, const char *inputPswd, const char *filename) const;

    char *key;    // owned; null only if memory was out
    char *permit; // likewise
};
