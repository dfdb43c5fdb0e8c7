#pragma once

#include <QByteArray>
#include <QString>

namespace pulsebar {

// The outcome of editing the text of an agent's config file. Editing never guesses: a file it
// cannot change without touching something else is refused, and the file stays as it is.
struct ConfigEdit {
    enum class Outcome {
        edited,    // `text` is the new file
        unchanged, // nothing to do; the file is not written
        unparsable,
        refused,   // parses, but an edit would change more than the pulsebar entry; `reason` says why
    };
    Outcome outcome = Outcome::unchanged;
    QByteArray text;
    QString reason;

    static ConfigEdit edited(QByteArray text) { return {Outcome::edited, std::move(text), {}}; }
    static ConfigEdit unchanged() { return {Outcome::unchanged, {}, {}}; }
    static ConfigEdit unparsable() { return {Outcome::unparsable, {}, {}}; }
    static ConfigEdit refused(QString reason) { return {Outcome::refused, {}, std::move(reason)}; }
};

} // namespace pulsebar
