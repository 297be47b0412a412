#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

// A parsed JSON document: null, boolean, number, string, array or object. Objects keep their keys sorted;
// the content sources never depend on key order. Any thread.
class JsonValue {
public:
    enum class Kind { Null, Bool, Number, String, Array, Object };

    // Throws std::runtime_error naming the line of the first fault.
    static JsonValue parse(const std::string& text);
    static JsonValue fromFile(const std::string& path);

    Kind kind = Kind::Null;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::vector<JsonValue> items;
    std::map<std::string, JsonValue> members;

    bool isNumber() const noexcept { return kind == Kind::Number; }
    bool isString() const noexcept { return kind == Kind::String; }
    bool isArray() const noexcept { return kind == Kind::Array; }
    bool isObject() const noexcept { return kind == Kind::Object; }
    // The member, or null when absent or when this is no object.
    const JsonValue* find(const std::string& key) const;

    // A string as a JSON literal, quoted and escaped.
    static std::string quote(const std::string& raw);
};
