// Fuzz target of the monitoring context: any bytes as the bound and as the base "am.mod". Whatever they hold,
// a read succeeds, leaves a level from 1 to 3 and a file that reads back the same.
#include "ProbeContextPersister.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct ScratchDir {
    ScratchDir() {
        std::string name = (fs::temp_directory_path() / "am-context-fuzz-XXXXXX").string();
        path = mkdtemp(name.data());
        fs::create_directories(path / "etc");
    }
    ~ScratchDir() { fs::remove_all(path); }
    fs::path path;
};

void put(const fs::path &path, const std::uint8_t *data, std::size_t size) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const ScratchDir scratch;
    put(scratch.path / "am.mod", data, size / 2);
    put(scratch.path / "etc/am.mod", data + size / 2, size - size / 2);
    ProbeContextPersister persister(scratch.path.c_str(), scratch.path.c_str());
    const bool good = persister.ctx_direct(ProbeContextPersister::CTX_READ);
    const int level = persister.ctx_getEnum(ProbeContextPersister::ctx_api_ProbeLevel);
    if (!good || level < 1 || level > 3 || !persister.ctx_direct(ProbeContextPersister::CTX_READ_SYNCH) ||
        persister.ctx_getEnum(ProbeContextPersister::ctx_api_ProbeLevel) != level) {
        abort();
    }
    return 0;
}
