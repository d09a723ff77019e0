#include "server/Render.h"

#include "decoder/Text.h"
#include "server/Output.h"

#include <cstdio>

namespace ps {
namespace {

using Json = nlohmann::ordered_json;

std::vector<std::string_view> splitStrs(const Value &value) {
    std::vector<std::string_view> texts;
    for (std::size_t at = 0; texts.size() < value.number;) {
        const std::size_t length = bigEndian(value.text.data() + at, 2);
        texts.push_back(value.text.substr(at + 2, length));
        at += 2 + length;
    }
    return texts;
}

// `count` numbers of `width` bytes, the first at `from`, one every `stride` bytes.
std::vector<std::uint64_t> splitNumbers(std::string_view bytes, std::size_t from, std::size_t stride,
                                        std::size_t width) {
    std::vector<std::uint64_t> numbers;
    for (std::size_t at = from; at + width <= bytes.size(); at += stride) {
        numbers.push_back(bigEndian(bytes.data() + at, width));
    }
    return numbers;
}

// Of the methods of a class, each: id, name, signature.
template <class Take>
void walkMethods(const Value &value, Take take) {
    std::string_view rest = value.text;
    const auto text = [&rest] {
        const std::size_t length = bigEndian(rest.data(), 2);
        const std::string_view found = rest.substr(2, length);
        rest.remove_prefix(2 + length);
        return found;
    };
    for (std::uint64_t i = 0; i < value.number; ++i) {
        const std::uint64_t id = bigEndian(rest.data(), 4);
        rest.remove_prefix(4);
        const std::string_view name = text();
        take(id, name, text());
    }
}

std::vector<std::uint64_t> methodIds(const Value &value) {
    std::vector<std::uint64_t> ids;
    walkMethods(value, [&](std::uint64_t id, std::string_view, std::string_view) { ids.push_back(id); });
    return ids;
}

std::vector<std::string> methodNames(const Value &value) {
    std::vector<std::string> names;
    walkMethods(value, [&](std::uint64_t, std::string_view name, std::string_view signature) {
        names.push_back(std::string(name).append(signature));
    });
    return names;
}

template <class Writer>
void writeField(const Field &field, const Record &record, const Value &value, Writer &writer) {
    switch (field.kind) {
    case Kind::Prefix:
        writer.number("thread", record.threadId);
        writer.number("depth", record.depth);
        writer.time(record.timeSec, record.timeUSec);
        writer.number("cpuTime", record.cpuTime);
        break;
    case Kind::ThreadId:
        writer.number("thread", record.threadId);
        break;
    case Kind::Time:
        writer.time(record.timeSec, record.timeUSec);
        break;
    case Kind::Level:
        writer.number("level", record.level);
        break;
    case Kind::Number:
        writer.number(field.name, value.number);
        break;
    case Kind::Numbers:
        writer.numbers(field.name, splitNumbers(value.text, 0, field.width, field.width));
        break;
    case Kind::Str:
    case Kind::Name:
    case Kind::Literal:
        writer.text(field.name, value.text);
        break;
    case Kind::Blob:
        writer.blob(field.name, value.text);
        break;
    case Kind::Size:
    case Kind::SizeEnd:
        break;
    case Kind::Strs:
        writer.number("nCtxProps", value.number);
        writer.texts(field.name, splitStrs(value));
        break;
    case Kind::Ids:
        writer.numbers(field.name, splitNumbers(value.text, 0, 4, 4));
        break;
    case Kind::Methods:
        writer.numbers("methodIds", methodIds(value));
        writer.texts(field.name, methodNames(value));
        break;
    case Kind::Entries:
        writer.number(field.name, value.number);
        writer.numbers("types", splitNumbers(value.text, 0, kEntryBytes, 1));
        writer.numbers("counts", splitNumbers(value.text, 1, kEntryBytes, 4));
        writer.numbers("avgTimes", splitNumbers(value.text, 5, kEntryBytes, 8));
        break;
    }
}

template <class Writer>
void writeFields(const Record &record, Writer &writer) {
    for (std::size_t i = 0; i < record.spec->fieldCount; ++i) {
        writeField(record.spec->fields[i], record, record.values[i], writer);
    }
}

struct JsonWriter {
    Json &json;

    void number(const char *name, std::uint64_t value) { json[name] = value; }
    void text(const char *name, std::string_view value) { json[name] = toUtf8(value); }
    void blob(const char *name, std::string_view value) { json[name] = toHex(value); }
    void numbers(const char *name, const std::vector<std::uint64_t> &values) { json[name] = values; }
    void time(std::uint32_t seconds, std::uint32_t microseconds) {
        json["timeSec"] = seconds;
        json["timeUSec"] = microseconds;
    }
    template <class T>
    void texts(const char *name, const std::vector<T> &values) {
        Json list = Json::array();
        for (const std::string_view value : values) {
            list.push_back(toUtf8(value));
        }
        json[name] = std::move(list);
    }
};

struct TextWriter {
    std::string &line;

    void key(const char *name) { line.append(1, ' ').append(name).append(1, '='); }
    void number(const char *name, std::uint64_t value) {
        key(name);
        line += std::to_string(value);
    }
    void text(const char *name, std::string_view value) {
        key(name);
        line += '"' + toLine(value) + '"';
    }
    void blob(const char *name, std::string_view value) {
        key(name);
        line += toHex(value);
    }
    void numbers(const char *name, const std::vector<std::uint64_t> &values) {
        key(name);
        const char *separator = "[";
        for (const std::uint64_t value : values) {
            line.append(separator).append(std::to_string(value));
            separator = ",";
        }
        line += values.empty() ? "[]" : "]";
    }
    void time(std::uint32_t seconds, std::uint32_t microseconds) {
        char value[32];
        std::snprintf(value, sizeof value, "%u.%06u", seconds, microseconds);
        key("time");
        line += value;
    }
    template <class T>
    void texts(const char *name, const std::vector<T> &values) {
        key(name);
        const char *separator = "[\"";
        for (const std::string_view value : values) {
            line.append(separator).append(toLine(value));
            separator = "\",\"";
        }
        line += values.empty() ? "[]" : "\"]";
    }
};

// Once nobody can read the lines any more, none is made: the totals still want every record, quickly.
class LineSink : public RecordSink {
public:
    explicit LineSink(Output &output) : output_(output) {}
    void record(std::uint64_t connection, const Record &record) override {
        if (!output_.broken()) {
            output_.write(line(connection, record) + "\n");
        }
    }

protected:
    virtual std::string line(std::uint64_t connection, const Record &record) const = 0;
    Output &output_;
};

class TextSink : public LineSink {
    using LineSink::LineSink;
    std::string line(std::uint64_t connection, const Record &record) const override {
        return recordText(connection, record);
    }
};

class JsonSink : public LineSink {
public:
    using LineSink::LineSink;
    void summary(const Summary &summary) override {
        const Json json = {{"summary", true},
                           {"conn", summary.connection},
                           {"peer", summary.peer},
                           {"bytes", summary.bytes},
                           {"packets", summary.packets},
                           {"records", summary.records},
                           {"counts", countsJson(summary.counts)},
                           {"ended", summary.ended},
                           {"errorBytes", summary.errorBytes}};
        // The peer may be a file whose name is no UTF-8.
        output_.write(json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
    }

private:
    std::string line(std::uint64_t connection, const Record &record) const override {
        return recordJson(connection, record).dump();
    }
};

} // namespace

std::string recordText(std::uint64_t connection, const Record &record) {
    std::string line = "conn=" + std::to_string(connection) + " seq=" + std::to_string(record.seq) +
                       " offset=" + std::to_string(record.offset) + " " + record.spec->name;
    TextWriter writer{line};
    writeFields(record, writer);
    return line;
}

nlohmann::ordered_json recordJson(std::uint64_t connection, const Record &record) {
    Json json = {{"conn", connection},      {"offset", record.offset},   {"seq", record.seq},
                 {"packet", record.packet}, {"type", record.spec->type}, {"name", record.spec->name}};
    JsonWriter writer{json};
    writeFields(record, writer);
    return json;
}

std::string summaryText(const Summary &summary) {
    std::string text = "connection " + std::to_string(summary.connection) + " from " + summary.peer + ": " +
                       summary.ended + "\n";
    if (!summary.errorBytes.empty()) {
        text += "  bytes around: " + summary.errorBytes + "\n";
    }
    text += "  " + std::to_string(summary.bytes) + " bytes, " + std::to_string(summary.packets) +
            " packets, " + std::to_string(summary.records) + " records\n";
    for (const RecordSpec &spec : recordSpecs()) {
        const std::uint64_t count = summary.counts[specIndex(spec)];
        if (count > 0) {
            text += "  " + std::to_string(count) + " " + spec.name + "\n";
        }
    }
    return text;
}

std::unique_ptr<RecordSink> makeTextSink(Output &output) {
    return std::make_unique<TextSink>(output);
}
std::unique_ptr<RecordSink> makeJsonSink(Output &output) {
    return std::make_unique<JsonSink>(output);
}

} // namespace ps
