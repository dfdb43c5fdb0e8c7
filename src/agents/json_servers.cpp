#include "agents/json_servers.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <QLocale>

#include <cmath>
#include <variant>

namespace pulsebar::JsonServers {

namespace {

// A number written in decimal, reduced to sign, significant digits and a power of ten, so that
// "1.50", "15e-1" and "1.5" compare equal.
struct Decimal {
    bool negative = false;
    QByteArray digits;
    int exponent = 0;
    bool operator==(const Decimal&) const = default;
};

Decimal decimal(QByteArrayView token)
{
    Decimal out;
    out.negative = token.startsWith('-');
    if (out.negative)
        token = token.sliced(1);
    const qsizetype e = std::max(token.indexOf('e'), token.indexOf('E'));
    QByteArrayView mantissa = e < 0 ? token : token.first(e);
    out.exponent = e < 0 ? 0 : token.sliced(e + 1).toInt();
    const qsizetype point = mantissa.indexOf('.');
    out.digits = mantissa.toByteArray();
    if (point >= 0) {
        out.digits.remove(point, 1);
        out.exponent -= int(mantissa.size() - point - 1);
    }
    while (out.digits.startsWith('0'))
        out.digits.remove(0, 1);
    while (out.digits.endsWith('0')) {
        out.digits.chop(1);
        ++out.exponent;
    }
    if (out.digits.isEmpty())
        out = {};
    return out;
}

// Qt keeps an integer that fits 64 bits as it is and any other number as a double, which it writes
// back in the fewest digits that read as that double. A number survives when that is the same value.
bool survivesRoundTrip(QByteArrayView token)
{
    const bool integer = !token.contains('.') && !token.contains('e') && !token.contains('E');
    bool ok = false;
    if (integer) {
        static_cast<void>(token.toLongLong(&ok));
        if (ok)
            return true;
    }
    const double value = token.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return false;
    return decimal(token) == decimal(QByteArray::number(value, 'g', QLocale::FloatingPointShortest));
}

bool everyNumberSurvives(const QByteArray& text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            for (++i; i < text.size() && text[i] != '"'; ++i)
                if (text[i] == '\\')
                    ++i;
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            const qsizetype start = i;
            while (i + 1 < text.size() && QByteArrayView("0123456789+-.eE").contains(text[i + 1]))
                ++i;
            if (!survivesRoundTrip(QByteArrayView(text).sliced(start, i + 1 - start)))
                return false;
        }
    }
    return true;
}

// The file's top-level object; nothing when the text is not one. Blank text is an empty object.
std::optional<QJsonObject> parsed(const QByteArray& text)
{
    if (text.trimmed().isEmpty())
        return QJsonObject{};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

// Parses the file for an edit, refusing what a rewrite would change: a server list that is not an
// object (its entries would be lost) and numbers Qt cannot write back with every digit.
std::variant<QJsonObject, ConfigEdit> editable(const QByteArray& text, const QString& key)
{
    const std::optional<QJsonObject> root = parsed(text);
    if (!root)
        return ConfigEdit::unparsable();
    if (root->contains(key) && !root->value(key).isObject())
        return ConfigEdit::refused('"' + key + "\" is not an object");
    if (!everyNumberSurvives(text))
        return ConfigEdit::refused("it holds numbers with more digits than Pulsebar can write back");
    return *root;
}

} // namespace

QByteArray text(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

std::optional<QString> command(const QByteArray& text, const QString& key, const QString& server)
{
    const std::optional<QJsonObject> root = parsed(text);
    if (!root)
        return std::nullopt;
    const QJsonValue entry = root->value(key).toObject().value(server);
    if (entry.isUndefined())
        return std::nullopt;
    return entry.toObject().value("command").toString();
}

ConfigEdit withServer(const QByteArray& original, const QString& key, const QString& server, const QJsonObject& entry)
{
    auto checked = editable(original, key);
    if (auto* refusal = std::get_if<ConfigEdit>(&checked))
        return *refusal;
    QJsonObject root = std::get<QJsonObject>(checked);
    QJsonObject servers = root.value(key).toObject();
    QJsonObject merged = servers.value(server).toObject();
    merged.remove("type");
    for (auto member = entry.begin(); member != entry.end(); ++member)
        merged.insert(member.key(), member.value());
    servers.insert(server, merged);
    root.insert(key, servers);
    return ConfigEdit::edited(text(root));
}

ConfigEdit withoutServer(const QByteArray& original, const QString& key, const QString& server)
{
    const std::optional<QJsonObject> root = parsed(original);
    if (!root)
        return ConfigEdit::unparsable();
    QJsonObject servers = root->value(key).toObject();
    if (!servers.contains(server))
        return ConfigEdit::unchanged();
    auto checked = editable(original, key);
    if (auto* refusal = std::get_if<ConfigEdit>(&checked))
        return *refusal;
    servers.remove(server);
    QJsonObject edited = *root;
    edited.insert(key, servers);
    return ConfigEdit::edited(text(edited));
}

} // namespace pulsebar::JsonServers
