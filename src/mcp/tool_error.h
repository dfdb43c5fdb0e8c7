#pragma once

#include <QString>

#include <stdexcept>

namespace pulsebar {

// A failure a tool reports to the agent as one finished sentence. It never ends the server: the
// sentence becomes the text of a tool result marked isError.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const QString& message) : std::runtime_error(message.toStdString()), m_message(message) {}

    const QString& message() const { return m_message; }

private:
    QString m_message;
};

} // namespace pulsebar
