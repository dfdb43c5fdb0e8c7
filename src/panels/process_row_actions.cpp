#include "panels/process_row_actions.h"

#include "monitors/process_actions.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

namespace pulsebar::ProcessRowActions {

bool forceQuit(const ProcessSample& process, const Confirm& confirm)
{
    if (!ProcessActions::canForceQuit(process.pid, process.name))
        return false;
    if (!confirm(ProcessActions::forceQuitMessage(process.name), ProcessActions::forceQuitInformativeText()))
        return false;
    return ProcessActions::forceTerminate(process.pid);
}

bool confirmWithAlert(const QString& message, const QString& informativeText)
{
    QMessageBox alert;
    alert.setIcon(QMessageBox::Information);
    alert.setText(message);
    alert.setInformativeText(informativeText);
    QPushButton* quit = alert.addButton(ProcessActions::forceQuitButton(), QMessageBox::AcceptRole);
    alert.addButton(ProcessActions::cancelButton(), QMessageBox::RejectRole);
    alert.setDefaultButton(quit);
    alert.exec();
    return alert.clickedButton() == quit;
}

void fillMenu(QMenu& menu, const ProcessSample& process, bool canQuit, const std::function<void()>& beforeAlert)
{
    if (canQuit)
        menu.addAction(QStringLiteral("Quit"), [process, beforeAlert] {
            if (beforeAlert)
                beforeAlert();
            forceQuit(process, confirmWithAlert);
        });
    const int32_t pid = process.pid;
    menu.addAction(QStringLiteral("Show in File Manager"), [pid] { ProcessActions::showInFinder(pid); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Open System Monitor"), [] { ProcessActions::openActivityMonitor(); });
}

} // namespace pulsebar::ProcessRowActions
