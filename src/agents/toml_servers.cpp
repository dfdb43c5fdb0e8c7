#include "agents/toml_servers.h"

#include <toml++/toml.h>

#include <string>
#include <vector>

namespace pulsebar::TomlServers {

namespace {

using Path = std::vector<std::string>;

std::optional<toml::table> parse(QByteArrayView text)
{
    try {
        return toml::parse(std::string_view(text.data(), std::size_t(text.size())));
    } catch (const toml::parse_error&) {
        return std::nullopt;
    }
}

// The key path a one-line document defines: "[a.\"b\"]  # x" gives a, b, and so does "a . b = 0".
// The parser reads the keys, so quoting, spacing and escapes are TOML's own.
Path definedPath(QByteArrayView line)
{
    Path path;
    const std::optional<toml::table> document = parse(line);
    for (const toml::table* at = document ? &*document : nullptr; at && at->size() == 1;) {
        const auto only = at->begin(); // its pair lives in the iterator
        path.emplace_back(only->first.str());
        at = only->second.as_table();
    }
    return path;
}

bool startsWith(const Path& path, const Path& prefix)
{
    return path.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), path.begin());
}

// What a line leaves open for the next: a multi-line string, or arrays and inline tables (an array
// may run over many lines).
struct Open {
    enum class String { none, basic, literal };
    String string = String::none;
    int brackets = 0;
    bool any() const { return string != String::none || brackets > 0; }
};

// Scans one line that begins inside `open` and returns what is still open at its end. Strings and
// comments are skipped; `equals`, when given, receives the first '=' outside them.
Open scan(QByteArrayView line, Open open, qsizetype* equals = nullptr)
{
    using String = Open::String;
    const auto at = [&](qsizetype i, QByteArrayView what) { return line.sliced(i).startsWith(what); };
    // A closing delimiter may carry one or two quotes of the string's own before it.
    const auto close = [&](qsizetype i, char quote) {
        i += 3;
        for (int extra = 0; extra < 2 && i < line.size() && line[i] == quote; ++extra)
            ++i;
        return i;
    };
    qsizetype i = 0;
    while (i < line.size()) {
        const char c = line[i];
        if (open.string == String::basic) {
            if (c == '\\')
                i += 2;
            else if (at(i, R"(""")"))
                i = close(i, '"'), open.string = String::none;
            else
                ++i;
        } else if (open.string == String::literal) {
            if (at(i, "'''"))
                i = close(i, '\''), open.string = String::none;
            else
                ++i;
        } else if (c == '#') {
            break;
        } else if (at(i, R"(""")")) {
            i += 3, open.string = String::basic;
        } else if (at(i, "'''")) {
            i += 3, open.string = String::literal;
        } else if (c == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i)
                if (line[i] == '\\')
                    ++i;
            ++i;
        } else if (c == '\'') {
            const qsizetype end = line.indexOf('\'', i + 1);
            i = end < 0 ? line.size() : end + 1;
        } else {
            if (c == '=' && equals && *equals < 0)
                *equals = i;
            open.brackets += int(c == '[' || c == '{') - int(c == ']' || c == '}');
            ++i;
        }
    }
    return open;
}

struct Line {
    enum class Kind { blank, comment, header, keyValue, continuation };
    qsizetype start = 0;
    qsizetype end = 0; // after the line feed
    Kind kind = Kind::blank;
    Path path; // header: the table it opens; keyValue: the table's path and then the key's
};

std::vector<Line> lines(const QByteArray& text)
{
    std::vector<Line> out;
    Path table;
    Open open;
    for (qsizetype start = 0; start < text.size();) {
        const qsizetype feed = text.indexOf('\n', start);
        Line line;
        line.start = start;
        line.end = feed < 0 ? text.size() : feed + 1;
        const QByteArrayView view = QByteArrayView(text).sliced(start, line.end - start);
        const QByteArray trimmed = view.toByteArray().trimmed();
        if (open.any()) {
            line.kind = Line::Kind::continuation;
            open = scan(view, open);
        } else if (trimmed.isEmpty()) {
            line.kind = Line::Kind::blank;
        } else if (trimmed.startsWith('#')) {
            line.kind = Line::Kind::comment;
        } else if (trimmed.startsWith('[')) {
            line.kind = Line::Kind::header;
            line.path = table = definedPath(trimmed);
        } else {
            line.kind = Line::Kind::keyValue;
            qsizetype equals = -1;
            open = scan(view, open, &equals);
            line.path = table;
            if (equals >= 0) {
                const Path key = definedPath(view.first(equals).toByteArray() + "= 0");
                line.path.insert(line.path.end(), key.begin(), key.end());
            }
        }
        out.push_back(std::move(line));
        start = out.back().end;
    }
    return out;
}

// Marks the lines that define the server: each of its tables up to the next table (less the comments
// that lead into that one, which belong to it) and each key-value line that sets it from elsewhere,
// with the lines its value runs on to.
std::vector<bool> serverLines(const std::vector<Line>& all, const Path& server)
{
    using Kind = Line::Kind;
    std::vector<bool> marked(all.size(), false);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!startsWith(all[i].path, server))
            continue;
        std::size_t end = i + 1;
        if (all[i].kind == Kind::header) {
            std::size_t next = i + 1;
            while (next < all.size() && all[next].kind != Kind::header)
                ++next;
            std::size_t content = next;
            while (content > i + 1 && (all[content - 1].kind == Kind::blank || all[content - 1].kind == Kind::comment))
                --content;
            end = content;
            while (end < next && all[end].kind == Kind::blank)
                ++end;
            if (end < next && all[end].kind == Kind::comment)
                ; // the comments lead into the next table and stay
            else
                end = next;
        } else {
            while (end < all.size() && all[end].kind == Kind::continuation)
                ++end;
        }
        std::fill(marked.begin() + i, marked.begin() + end, true);
        i = end - 1;
    }
    return marked;
}

void dropTrailingBlankLines(QByteArray& text)
{
    while (text.endsWith("\n\n"))
        text.chop(1);
}

// The text without the server's lines; nothing when the text does not define the server.
std::optional<QByteArray> without(const QByteArray& text, const Path& server)
{
    const std::vector<Line> all = lines(text);
    const std::vector<bool> marked = serverLines(all, server);
    if (std::find(marked.begin(), marked.end(), true) == marked.end())
        return std::nullopt;
    QByteArray kept;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (!marked[i])
            kept += QByteArrayView(text).sliced(all[i].start, all[i].end - all[i].start);
    dropTrailingBlankLines(kept);
    return kept;
}

// A TOML basic string; control characters are escaped, since a raw line feed would end the line.
QByteArray basicString(const QString& value)
{
    QByteArray out = "\"";
    for (const char c : value.toUtf8()) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\r': out += "\\r"; break;
        default:
            if (byte < 0x20 || byte == 0x7f)
                out += QByteArray("\\u00") + QByteArray::number(byte, 16).rightJustified(2, '0').toUpper();
            else
                out += c;
        }
    }
    return out + '"';
}

Path serverPath(const QString& server)
{
    return {"mcp_servers", server.toStdString()};
}

// Why an edit did not read back as it should, as far as it can be told.
QString mismatch(const toml::table& original)
{
    if (const toml::table* servers = original["mcp_servers"].as_table(); servers && servers->is_inline())
        return "mcp_servers is written as an inline table";
    if (original.contains("mcp_servers") && !original["mcp_servers"].is_table())
        return "mcp_servers is not a table";
    return "the edited file would not read back as the same settings";
}

// The edit is kept only when the new text parses to exactly the settings expected.
ConfigEdit checked(const QByteArray& original, QByteArray edited, const toml::table& expected, const toml::table& before)
{
    if (edited == original)
        return ConfigEdit::unchanged();
    const std::optional<toml::table> after = parse(edited);
    if (!after || *after != expected)
        return ConfigEdit::refused(mismatch(before));
    return ConfigEdit::edited(std::move(edited));
}

} // namespace

std::optional<QString> command(const QByteArray& text, const QString& server)
{
    const std::optional<toml::table> document = parse(text);
    if (!document)
        return std::nullopt;
    const auto entry = (*document)["mcp_servers"][server.toStdString()];
    if (!entry)
        return std::nullopt;
    return QString::fromStdString(entry["command"].value_or(std::string()));
}

QByteArray table(const QString& server, const QString& command)
{
    return "[mcp_servers." + server.toUtf8() + "]\ncommand = " + basicString(command) + "\nargs = [\"--mcp\"]\n";
}

ConfigEdit withServer(const QByteArray& text, const QString& server, const QString& command)
{
    const std::optional<toml::table> before = parse(text);
    if (!before)
        return ConfigEdit::unparsable();

    QByteArray edited = without(text, serverPath(server)).value_or(text);
    dropTrailingBlankLines(edited);
    if (!edited.isEmpty())
        edited += edited.endsWith('\n') ? "\n" : "\n\n";
    edited += table(server, command);

    toml::table expected = *before;
    if (!expected.contains("mcp_servers"))
        expected.insert("mcp_servers", toml::table{});
    if (toml::table* servers = expected["mcp_servers"].as_table())
        servers->insert_or_assign(server.toStdString(),
                                  toml::table{{"command", command.toStdString()}, {"args", toml::array{"--mcp"}}});
    return checked(text, std::move(edited), expected, *before);
}

ConfigEdit withoutServer(const QByteArray& text, const QString& server)
{
    const std::optional<toml::table> before = parse(text);
    if (!before)
        return ConfigEdit::unparsable();
    if (!command(text, server))
        return ConfigEdit::unchanged();
    std::optional<QByteArray> edited = without(text, serverPath(server));
    if (!edited)
        return ConfigEdit::refused(mismatch(*before));

    // A table that only held the server disappears with it, whether it was written out or implied.
    const auto withoutEmptyServers = [](toml::table settings) {
        if (const toml::table* servers = settings["mcp_servers"].as_table(); servers && servers->empty())
            settings.erase("mcp_servers");
        return settings;
    };
    toml::table expected = *before;
    if (toml::table* servers = expected["mcp_servers"].as_table())
        servers->erase(server.toStdString());
    const std::optional<toml::table> after = parse(*edited);
    if (!after || withoutEmptyServers(*after) != withoutEmptyServers(expected))
        return ConfigEdit::refused(mismatch(*before));
    return ConfigEdit::edited(std::move(*edited));
}

} // namespace pulsebar::TomlServers
