#include "monitors/process_actions.h"

#include <QCoreApplication>

#include <unistd.h>

namespace pulsebar::ProcessActions {

bool canForceQuit(int32_t pid, const QString& name)
{
    return pid != int32_t(::getpid()) && !protectedNames().contains(name);
}

std::optional<QString> locationFromExecutable(const QString& executablePath)
{
    if (executablePath.isEmpty())
        return std::nullopt;
    const qsizetype bundle = executablePath.indexOf(QLatin1String(".app/"));
    if (bundle >= 0)
        return executablePath.left(bundle + 4);
    return executablePath;
}

QString forceQuitMessage(const QString& name)
{
    return QStringLiteral("Force quit \u201C") + name + QStringLiteral("\u201D?");
}

QString forceQuitInformativeText() { return QStringLiteral("You will lose any unsaved changes."); }
QString forceQuitButton() { return QStringLiteral("Force Quit"); }
QString cancelButton() { return QStringLiteral("Cancel"); }

} // namespace pulsebar::ProcessActions
