#include "tools/JsonValue.h"

#include "tools/BoundedFile.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

class Parser {
public:
    explicit Parser(const std::string& source) : s(source) {}

    JsonValue document() {
        JsonValue value = parseValue(0);
        skipSpace();
        if (pos != s.size()) fail("text after the document");
        return value;
    }

private:
    static constexpr int kMaxDepth = 64;

    [[noreturn]] void fail(const char* what) const {
        int line = 1;
        for (std::size_t i = 0; i < pos && i < s.size(); ++i)
            line += s[i] == '\n';
        throw std::runtime_error("line " + std::to_string(line) + ": " + what);
    }

    void skipSpace() {
        while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t' || s[pos] == '\n' || s[pos] == '\r'))
            ++pos;
    }

    bool take(char c) {
        skipSpace();
        if (pos < s.size() && s[pos] == c) {
            ++pos;
            return true;
        }
        return false;
    }

    void expect(char c) {
        if (!take(c)) fail(c == ':' ? "':' expected" : c == ']' ? "']' expected" : "'}' expected");
    }

    bool literal(const char* word) {
        const std::string w(word);
        if (s.compare(pos, w.size(), w) != 0) return false;
        pos += w.size();
        return true;
    }

    JsonValue parseValue(int depth) {
        if (depth > kMaxDepth) fail("nested too deeply");
        skipSpace();
        if (pos >= s.size()) fail("value expected");
        JsonValue v;
        const char c = s[pos];
        if (c == '{') {
            ++pos;
            v.kind = JsonValue::Kind::Object;
            if (take('}')) return v;
            do {
                skipSpace();
                if (pos >= s.size() || s[pos] != '"') fail("key expected");
                std::string key = parseString();
                expect(':');
                if (v.members.count(key)) fail("duplicate key");
                v.members[key] = parseValue(depth + 1);
            } while (take(','));
            expect('}');
        } else if (c == '[') {
            ++pos;
            v.kind = JsonValue::Kind::Array;
            if (take(']')) return v;
            do
                v.items.push_back(parseValue(depth + 1));
            while (take(','));
            expect(']');
        } else if (c == '"') {
            v.kind = JsonValue::Kind::String;
            v.text = parseString();
        } else if (literal("true")) {
            v.kind = JsonValue::Kind::Bool;
            v.boolean = true;
        } else if (literal("false")) {
            v.kind = JsonValue::Kind::Bool;
        } else if (literal("null")) {
            v.kind = JsonValue::Kind::Null;
        } else {
            v.kind = JsonValue::Kind::Number;
            v.number = parseNumber();
        }
        return v;
    }

    double parseNumber() {
        const std::size_t start = pos;
        if (pos < s.size() && s[pos] == '-') ++pos;
        const auto digits = [&] {
            const std::size_t from = pos;
            while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9')
                ++pos;
            return pos > from;
        };
        if (!digits()) fail("value expected");
        if (pos < s.size() && s[pos] == '.') {
            ++pos;
            if (!digits()) fail("digit expected");
        }
        if (pos < s.size() && (s[pos] == 'e' || s[pos] == 'E')) {
            ++pos;
            if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) ++pos;
            if (!digits()) fail("digit expected");
        }
        const double value = std::strtod(s.substr(start, pos - start).c_str(), nullptr);
        if (!std::isfinite(value)) fail("number out of range");
        return value;
    }

    unsigned hex4() {
        if (pos + 4 > s.size()) fail("bad escape");
        unsigned code = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = s[pos++];
            code <<= 4;
            if (h >= '0' && h <= '9')
                code |= static_cast<unsigned>(h - '0');
            else if (h >= 'a' && h <= 'f')
                code |= static_cast<unsigned>(h - 'a' + 10);
            else if (h >= 'A' && h <= 'F')
                code |= static_cast<unsigned>(h - 'A' + 10);
            else
                fail("bad escape");
        }
        return code;
    }

    static void appendUtf8(std::string& out, unsigned code) {
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    std::string parseString() {
        ++pos;
        std::string out;
        for (;;) {
            if (pos >= s.size()) fail("unterminated string");
            const char c = s[pos++];
            if (c == '"') return out;
            if (static_cast<unsigned char>(c) < 0x20) {
                --pos;
                fail("control character in string");
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            if (pos >= s.size()) fail("bad escape");
            const char e = s[pos++];
            switch (e) {
            case '"':
                out += '"';
                break;
            case '\\':
                out += '\\';
                break;
            case '/':
                out += '/';
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                unsigned code = hex4();
                if (code >= 0xD800 && code < 0xDC00 && s.compare(pos, 2, "\\u") == 0) {
                    pos += 2;
                    const unsigned low = hex4();
                    if (low < 0xDC00 || low >= 0xE000) fail("bad surrogate pair");
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                }
                appendUtf8(out, code);
                break;
            }
            default:
                fail("bad escape");
            }
        }
    }

    const std::string& s;
    std::size_t pos = 0;
};

} // namespace

JsonValue JsonValue::parse(const std::string& text) {
    return Parser(text).document();
}

JsonValue JsonValue::fromFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    std::string reason;
    if (!BoundedFile::read(path, bytes, reason))
        throw std::runtime_error("cannot read " + path + ": " + reason);
    try {
        return parse(std::string(bytes.begin(), bytes.end()));
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(path + ": " + e.what());
    }
}

const JsonValue* JsonValue::find(const std::string& key) const {
    if (kind != Kind::Object) return nullptr;
    const auto it = members.find(key);
    return it == members.end() ? nullptr : &it->second;
}

namespace {

// Length of the valid UTF-8 sequence at `i`, 0 when the bytes there are not one.
std::size_t utf8Length(const std::string& raw, std::size_t i) {
    const auto lead = static_cast<unsigned char>(raw[i]);
    const std::size_t length = lead < 0x80         ? 1
                               : (lead >> 5) == 6  ? 2
                               : (lead >> 4) == 14 ? 3
                               : (lead >> 3) == 30 ? 4
                                                   : 0;
    if (length == 0 || (length == 2 && lead < 0xC2) || i + length > raw.size()) return 0;
    for (std::size_t k = 1; k < length; ++k)
        if ((static_cast<unsigned char>(raw[i + k]) >> 6) != 2) return 0;
    return length;
}

} // namespace

// Bytes that are no UTF-8 are taken as Latin-1, so any stored name gives valid JSON.
std::string JsonValue::quote(const std::string& raw) {
    std::string out = "\"";
    for (std::size_t i = 0; i < raw.size();) {
        const char c = raw[i];
        const auto u = static_cast<unsigned char>(c);
        const std::size_t length = utf8Length(raw, i);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20 || length == 0) {
            char code[8];
            std::snprintf(code, sizeof(code), "\\u%04x", u);
            out += code;
        } else {
            out.append(raw, i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return out + "\"";
}
