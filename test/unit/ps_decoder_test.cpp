#include "ps_bytes.h"

#include <gtest/gtest.h>

#include <random>

using namespace pstest;

namespace {

// In both notations @ stands for the prefix, in JSON # for the level. Every byte of the prefix differs from
// every other, so a field taken from the wrong place shows.
std::string replaced(std::string text, char mark, const char *with) {
    const std::size_t at = text.find(mark);
    return at == std::string::npos ? text : text.replace(at, 1, with);
}
std::string wireOf(const std::string &notation) {
    return bytes(replaced(notation, '@', "01020304 05 06070809 0A0B0C0D 0E0F101112131415"));
}
std::string fieldsOf(const std::string &json) {
    constexpr char kPrefix[] = R"("thread":16909060,"depth":5,"timeSec":101124105,"timeUSec":168496141,)"
                               R"("cpuTime":1013046106685379605)";
    return replaced(replaced(json, '@', kPrefix), '#', R"("level":3)");
}

struct Golden {
    const char *wire;
    const char *json; // the name and the fields behind it
};

// Every kind of field, and the layouts that no producer of the agent writes yet.
const Golden kGolden[] = {
    {"04 @ 01 0003'get' 0004'shop' 0005'/shop' 0002'me' 03 7F7F",
     R"("HttpEvent.begin",@,"namesFlag":1,"requestName":"get","applicationName":"shop","url":"/shop",)"
     R"("userId":"me",#)"},
    {"04 @ 00 0000 0000 0005'/shop' 0000 03 7F7F",
     R"("HttpEvent.begin",@,"namesFlag":0,"requestName":"","applicationName":"","url":"/shop",)"
     R"("userId":"",#)"},
    // The size counts the three strings with their lengths: 2+1, 2+2, 2+3.
    {"06 @ 000C 0001'B' 0002'mm' 0003'app' 03 7F7F",
     R"("EJBEvent.begin",@,"bean":"B","method":"mm","application":"app",#)"},
    {"08 06070809 0A0B0C0D 000C'system_trace' 03 7F7F",
     R"("TraceEvent","timeSec":101124105,"timeUSec":168496141,"requestName":"system_trace",#)"},
    {"09 @ 03 0002'ds' 0008'SELECT 1' 7F7F",
     R"("SQLEvent.begin",@,#,"dataSourceName":"ds","sql":"SELECT 1")"},
    {"0B 01020304 00000001 00000002 00000003 00000004 00000005 01000006 7F7F",
     R"("DroppedEvent","thread":16909060,"otherStarts":1,"otherEnds":2,"methodStarts":3,)"
     R"("methodEnds":4,"sqlStarts":5,"sqlEnds":16777222)"},
    {"0E 01020304 06070809 0A0B0C0D 2122232425262728 4142434445464748 5152535455565758 7F7F",
     R"("GCEvent.end","thread":16909060,"timeSec":101124105,"timeUSec":168496141,)"
     R"("usedObjects":2387509390608836392,"usedObjectSpace":4702394921427289928,)"
     R"("totalObjectSpace":5859837686836516696)"},
    {"27 00000001 00000002 00000003 FFFFFFFF 01 7F7F",
     R"("SamplingEvent","levels":[1,2,3,4294967295],"useDefault":1)"},
    {"29 0001'm' 0001'q' 2122232425262728 0000000207 00000008 0000000000000009 FF 31323334 4142434445464748 "
     "7F7F",
     R"("XQIEvent","mgrName":"m","queueName":"q","snapShotTime":2387509390608836392,"arrLength":2,)"
     R"("types":[7,255],"counts":[8,825373492],"avgTimes":[9,4702394921427289928])"},
    {"29 0000 0000 0000000000000000 00000000 7F7F",
     R"("XQIEvent","mgrName":"","queueName":"","snapShotTime":0,"arrLength":0,"types":[],"counts":[],)"
     R"("avgTimes":[])"},
    {"2C 0000 7F7F", R"("PSStatusEvent","message":"")"},
    // Texts may hold the end mark; only the layout says where a record ends.
    {"2C 0004 7F7F'ok' 7F7F", "\"PSStatusEvent\",\"message\":\"\x7F\x7Fok\""},
    {"33 @ 0003 7F7F01 03 7F7F", R"("GPSEvent.invoke.begin",@,"token":"7F7F01",#)"},
    {"39 @ 0001'q' 0002 CDEF 01 03 7F7F",
     R"("GPSXQEvent.7.begin",@,"queueName":"q","gpsToken":"CDEF","actionIs7":1,#)"},
    {"63 2A @ 02 0001 20 0000 03 7F7F",
     R"("GenericEvent.begin","id":42,@,"nCtxProps":2,"ctxValues":[" ",""],#)"},
    {"6C 2A 01020304 01 0002'cv' 03 7F7F",
     R"("GenericExceptionEvent","id":42,"thread":16909060,"nCtxProps":1,"ctxValues":["cv"],#)"},
    {"96 @ 0001'C' 00000000 0002'me' 03 7F7F",
     R"("CommonEvent.begin",@,"className":"C","nameType":0,"methodName":"me",#)"},
    {"96 @ 0001'C' 0000002D 0002'me' 03 7F7F",
     R"("CommonEvent.begin",@,"className":"C","nameType":45,"methodName":"me",#)"},
};

std::vector<std::string> allRecords() {
    std::vector<std::string> records;
    for (const Golden &golden : kGolden) {
        records.push_back(wireOf(golden.wire));
    }
    return records;
}

std::string streamOfAll() {
    const std::vector<std::string> records = allRecords();
    return kInitBlock + packet(records) + bytes("00 00000001 7F7F 2C 0000 7F7F") +
           packet({records[0], records[2]});
}

std::string lineOf(const std::string &wire) {
    const Decoded decoded = decode(kInitBlock + packet({wire}));
    EXPECT_TRUE(decoded.atBoundary) << decoded.error.message;
    return decoded.lines.size() == 3 ? decoded.lines[2] : "no record: " + decoded.error.message;
}

std::string expectedLine(int type, const std::string &fields) {
    const std::size_t offset = kInitBlock.size() + 7;
    return R"({"conn":7,"offset":)" + std::to_string(offset) + R"(,"seq":3,"packet":1,"type":)" +
           std::to_string(type) + ",\"name\":" + fieldsOf(fields) + "}";
}

} // namespace

TEST(PsDecoder, initialBlock) {
    const Decoded decoded = decode(kInitBlock);
    ASSERT_EQ(decoded.lines.size(), 2u);
    EXPECT_EQ(decoded.lines[0], R"({"conn":7,"offset":0,"seq":1,"packet":0,"type":2000,"name":"InitRecord",)"
                                R"("fixed100":100,"platformId":2,"fixed1":1,"timeMillis":2712847316})");
    EXPECT_EQ(
        decoded.lines[1],
        R"({"conn":7,"offset":17,"seq":2,"packet":0,"type":101,"name":"J2EEInitRecord","fixed200":200,)"
        R"("major":9,"minor":8,"revision":7,"commandAgentID":"agent","clusterName":"<NO CLUSTER NAME>",)"
        R"("nodeName":"node","serverName":"server","adminServerPort":8080})");
    EXPECT_TRUE(decoded.atBoundary);
}

TEST(PsDecoder, everyByteOfEveryKindOfField) {
    for (const Golden &golden : kGolden) {
        const std::string wire = wireOf(golden.wire);
        EXPECT_EQ(lineOf(wire), expectedLine(static_cast<unsigned char>(wire[0]), golden.json));
    }
}

TEST(PsDecoder, piecesOfAnySizeGiveTheSameRecords) {
    const std::string stream = streamOfAll();
    const Decoded whole = decode(stream);
    ASSERT_EQ(whole.lines.size(), 2 + allRecords().size() + 3);
    EXPECT_EQ(decode(stream, [] { return 1; }).lines, whole.lines);
    std::mt19937 random(16);
    for (int round = 0; round < 200; ++round) {
        const Decoded split = decode(stream, [&] { return 1 + random() % 40; });
        ASSERT_EQ(split.lines, whole.lines) << "round " << round;
        ASSERT_TRUE(split.atBoundary);
    }
}

TEST(PsDecoder, cutStreamsWaitForMore) {
    const std::string stream = streamOfAll();
    for (std::size_t length = 1; length < stream.size(); ++length) {
        const Decoded cut = decode(stream.substr(0, length));
        ASSERT_FALSE(cut.fatal) << length << ": " << cut.error.message;
    }
    EXPECT_FALSE(decode(kInitBlock.substr(0, 17)).atBoundary);
    EXPECT_TRUE(decode("").atBoundary);
}

TEST(PsDecoder, malformedStreams) {
    const std::size_t packetAt = kInitBlock.size();
    const std::size_t recordAt = packetAt + 7;
    const auto init = [](std::size_t at, char value) {
        std::string block = kInitBlock;
        block[at] = value;
        return block;
    };
    const auto one = [](const char *wire) { return kInitBlock + packet({wireOf(wire)}); };
    const struct {
        std::string stream;
        std::size_t offset;
        const char *message;
    } cases[] = {
        {"GET / HTTP/1.1\r\n", 0, "unknown record type 1195725856"},
        {init(4, 99), 4, "value out of range in InitRecord, field fixed100"},
        {init(6, 2), 6, "field fixed1"},
        {init(10, 1), 7, "field timeMillis"},
        {init(15, 0), 15, "no end-of-record mark in InitRecord"},
        {init(17, 0), 17, "unknown record type 0"},
        {init(18, 100), 18, "field fixed200"},
        {init(31, '['), 29, "not the fixed text in J2EEInitRecord, field clusterName"},
        {init(22, 1), 22, "text longer than its field in J2EEInitRecord, field commandAgentID"},
        {init(48, 1), 48, "field nodeName"},
        {kInitBlock + bytes("2C 0000 7F7F"), packetAt, "unknown record type 44"},
        {kInitBlock + bytes("00 00000000 7F7F"), packetAt + 1,
         "value out of range in PacketHeader, field count"},
        {kInitBlock + bytes("00 00000001 7F7E"), packetAt + 5, "no end-of-record mark in PacketHeader"},
        {one("FE 0000 7F7F"), recordAt, "unknown record type 254"},
        {one("2C 0001'x' 7F00"), recordAt + 4, "no end-of-record mark in PSStatusEvent"},
        {one("04 @ 02 0000 0000 0000 0000 03 7F7F"), recordAt + 22, "field namesFlag"},
        {one("04 @ 00 0000 0001'a' 0000 0000 03 7F7F"), recordAt + 25, "a name although the names flag is 0"},
        {one("27 00000001 00000002 00000003 00000004 02 7F7F"), recordAt + 17, "field useDefault"},
        {one("39 @ 0000 0000 07 03 7F7F"), recordAt + 26, "field actionIs7"},
        {one("37 @ 0000 0000 01 03 7F7F"), recordAt + 26, "field actionIs7"},
        {one("96 @ 0000 0000002E 0000 03 7F7F"), recordAt + 24, "field nameType"},
        {one("98 @ 0000 0000002D 0000 03 7F7F"), recordAt + 24, "field nameType"},
        {one("06 @ 0007 0000 0000 0000 03 7F7F"), recordAt + 30, "length does not fit its content"},
        // A wrong length is refused at once, not when all that it announces has come.
        {one("06 @ 0007 0006"), recordAt + 26,
         "length does not fit its content in EJBEvent.begin, field bean"},
        {one("04 @ 00 0001"), recordAt + 23,
         "a name although the names flag is 0 in HttpEvent.begin, field requestName"},
        {one("29 0000 0000 0000000000000000 FFFFFFFF"), recordAt + 17, "record longer than the limit"},
        // One record too few, then too many, for what the header counts.
        {kInitBlock + bytes("00 00000002 7F7F 2C 0000 7F7F 00 00000001 7F7F"), recordAt + 5,
         "unknown record type 0"},
        {kInitBlock + bytes("00 00000001 7F7F 2C 0000 7F7F 2C 0000 7F7F"), recordAt + 5,
         "unknown record type 44"},
    };
    for (const auto &bad : cases) {
        for (const std::size_t piece : {1u << 20, 1u}) {
            const Decoded decoded = decode(bad.stream, [&] { return piece; });
            EXPECT_TRUE(decoded.fatal) << bad.message;
            EXPECT_NE(decoded.error.message.find(bad.message), std::string::npos) << decoded.error.message;
            EXPECT_EQ(decoded.error.offset, bad.offset) << decoded.error.message;
        }
    }
}

TEST(PsDecoder, memoryStaysBounded) {
    constexpr std::size_t kLimit = 1u << 20;
    const std::size_t most = kLimit + 3 * ps::StreamDecoder::kMinSpace;
    const std::string longText = bytes("FFFF") + std::string(65535, 'x');
    std::string endless = "\x6C\x2A" + u32(1) + "\xFF"; // one record of 255 texts: 16 MB
    for (int i = 0; i < 255; ++i) {
        endless += longText;
    }
    const Decoded refused = decode(
        kInitBlock + packet({endless}), [] { return 4000; }, kLimit);
    EXPECT_TRUE(refused.fatal);
    EXPECT_LE(refused.capacity, most);

    const std::string status = "\x2C" + longText + "\x7F\x7F";
    std::string many = kInitBlock;
    for (int i = 0; i < 200; ++i) {
        many += packet({status});
    }
    const Decoded accepted = decode(
        many, [] { return 70000; }, kLimit);
    EXPECT_EQ(accepted.lines.size(), 202u);
    EXPECT_LE(accepted.capacity, most);

    // After a giant record the memory goes back.
    const Decoded giant = decode(
        kInitBlock + packet({endless + std::string("\x03\x7F\x7F")}) + many.substr(kInitBlock.size()),
        [] { return 1u << 20; }, 32u << 20);
    EXPECT_EQ(giant.lines.size(), 203u);
    EXPECT_LE(giant.capacity, most);
}
