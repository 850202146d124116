#include "linedjson.h"

#include <iterator>
#include <vector>

namespace
{

using nlohmann::json;

const size_t MAX_DEPTH = 32;

/// Reads the text and counts the line breaks that it has passed.
class CountingIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    CountingIterator(const char *position, int *line, bool *atBreak)
        : position(position), line(line), atBreak(atBreak)
    {
    }

    reference operator*() const { return *position; }
    CountingIterator &operator++()
    {
        // The parser reads one character beyond a number: that line break does not count yet.
        if (*atBreak)
            ++*line;
        *atBreak = *position == '\n';
        ++position;
        return *this;
    }
    bool operator==(const CountingIterator &other) const { return position == other.position; }
    bool operator!=(const CountingIterator &other) const { return position != other.position; }

private:
    const char *position;
    int *line;
    bool *atBreak;
};

/// Builds the document and notes each value's line (the events of nlohmann::json's SAX interface).
class Builder : public nlohmann::json_sax<json>
{
public:
    Builder(LinedJson &result, const int *line) : result(result), line(line) { }

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override { return add(value); }
    bool number_float(number_float_t value, const string_t &) override { return add(value); }
    bool string(string_t &value) override { return add(value); }
    bool binary(binary_t &) override { return false; }
    bool start_object(std::size_t) override { return open(json::object()); }
    bool start_array(std::size_t) override { return open(json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t &name) override
    {
        if (result.document[stack.back()].contains(name))
            throw ConfigError(*line, "\"" + name + "\" stands twice in the same object");
        lastKey = name;
        return true;
    }

    bool parse_error(std::size_t, const std::string &, const json::exception &error) override
    {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..." without its head.
        const std::string text = error.what();
        const size_t colon = text.find(": ");
        const size_t begin = colon == std::string::npos ? text.find("] ") : colon;
        throw ConfigError(*line, "this is not JSON: " + text.substr(begin + 2));
    }

private:
    bool add(json value)
    {
        const json::json_pointer place = stack.empty() ? json::json_pointer() : nextPlace();
        result.document[place] = std::move(value);
        result.lines[place.to_string()] = *line;
        return true;
    }

    bool open(json value)
    {
        if (stack.size() == MAX_DEPTH)
            throw ConfigError(*line, "this is nested too deeply");
        const json::json_pointer place = stack.empty() ? json::json_pointer() : nextPlace();
        add(std::move(value));
        stack.push_back(place);
        return true;
    }

    bool close()
    {
        stack.pop_back();
        return true;
    }

    json::json_pointer nextPlace() const
    {
        const json &parent = result.document[stack.back()];
        return parent.is_array() ? stack.back() / parent.size() : stack.back() / lastKey;
    }

    LinedJson &result;
    const int *line;
    std::vector<json::json_pointer> stack;
    std::string lastKey;
};

} // namespace

LinedJson LinedJson::parse(const std::string &text)
{
    LinedJson result;
    int line = 1;
    bool atBreak = false;
    Builder builder(result, &line);
    json::sax_parse(CountingIterator(text.data(), &line, &atBreak),
                    CountingIterator(text.data() + text.size(), &line, &atBreak), &builder);
    return result;
}
