// What happens to the bytes of one connection, wherever they come from: decode, count, hand to the sink.
// Knows no socket. The totals and the sink (which may be null) must outlive the session. One thread.
#pragma once

#include "decoder/StreamDecoder.h"
#include "server/PairMatcher.h"
#include "server/Render.h"
#include "server/Totals.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ps {

class Session {
public:
    Session(std::uint64_t connection, std::string peer, Totals &totals, RecordSink *sink,
            std::size_t maxRecordBytes);

    ~Session() { close(); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    StreamDecoder::Space prepare() { return decoder_.prepare(); }
    // Decodes all that is whole, after `count` bytes were put into the prepared space. False once the stream
    // cannot be decoded further.
    bool commit(std::size_t count);

    // Closes the books, once; takes no memory.
    void close() noexcept;
    // close(), and what there is to tell. `how`: what ended the stream; a decoding error takes its place.
    Summary finish(const std::string &how);

    // Memory for bytes that wait and begins that are open.
    std::size_t heldBytes() const { return decoder_.capacity() + pairs_.heldBytes(); }
    bool isOpen() const { return decoder_.isOpen(); } // the initial block has come
    void wake(std::vector<char> &spare) { decoder_.wake(spare); }
    void rest(std::vector<char> &spare) { decoder_.rest(spare); }

private:
    StreamDecoder decoder_;
    PairMatcher pairs_;
    Totals &totals_;
    RecordSink *sink_;
    Summary summary_;
    Record record_;
    bool failed_ = false;
    bool closed_ = false;
};

} // namespace ps
