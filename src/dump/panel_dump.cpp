#include "dump/panel_dump.h"

#include "app/appearance.h"
#include "core/app_settings.h"
#include "hub/hub.h"
#include "core/preferences.h"
#include "panels/panel_content.h"
#include "panels/panel_view.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>
#include <QThread>

#include <stdexcept>

namespace pulsebar {

namespace PanelDump {

QImage render(ModuleKind kind, const PanelSnapshot& snapshot, const Config& config, bool dark,
              const HistoryGraph::Loader& loader, double devicePixelRatio)
{
    const std::optional<PanelModel> model = PanelContent::build(kind, snapshot, config);
    return model ? render(*model, snapshot, config, dark, loader, devicePixelRatio) : QImage();
}

QImage render(const PanelModel& model, const PanelSnapshot& snapshot, const Config& config, bool dark,
              const HistoryGraph::Loader& loader, double devicePixelRatio)
{
    applyAppearance(dark ? AppearanceMode::dark : AppearanceMode::light);
    PanelView view(loader, nullptr);
    view.graph()->setTimeZone(QTimeZone::utc());
    view.setAttribute(Qt::WA_DontShowOnScreen);
    view.setContent(model, snapshot, config);
    view.show();
    view.adjustSize();
    QImage image((view.size() * devicePixelRatio), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(view.palette().color(QPalette::Window));
    QPainter painter(&image);
    view.render(&painter);
    painter.end();
    view.hide();
    return image;
}

std::vector<ModuleKind> write(const QDir& stateFolder, const PanelSnapshot& snapshot, const Config& config, bool dark,
                              const HistoryGraph::Loader& loader, double devicePixelRatio)
{
    std::vector<ModuleKind> drawn;
    QJsonObject texts;
    for (const PanelContent::Entry& entry : PanelContent::registry()) {
        const QString path = stateFolder.filePath(QStringLiteral("panel-%1.png").arg(enumName(entry.kind)));
        // Light compression: a panel image is large, and the default level costs most of a dump's time.
        if (!render(entry.kind, snapshot, config, dark, loader, devicePixelRatio).save(path, "PNG", 80))
            throw std::runtime_error("Cannot write " + path.toStdString() + ".");
        texts.insert(enumName(entry.kind), entry.build(snapshot, config).toJson());
        drawn.push_back(entry.kind);
    }
    for (const PanelContent::TilePanel& panel : PanelContent::tilePanels()) {
        const PanelModel model = panel.build(snapshot, config);
        const QString path = stateFolder.filePath(QStringLiteral("panel-%1.png").arg(enumName(panel.item)));
        if (!render(model, snapshot, config, dark, loader, devicePixelRatio).save(path, "PNG", 80))
            throw std::runtime_error("Cannot write " + path.toStdString() + ".");
        texts.insert(enumName(panel.item), model.toJson());
    }
    const QString path = stateFolder.filePath(QStringLiteral("panels.json"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(QJsonDocument(texts).toJson(QJsonDocument::Indented)) < 0)
        throw std::runtime_error("Cannot write " + path.toStdString() + ".");
    return drawn;
}

Live live()
{
    // The user's own configuration (units, ping host, sensor choice), read and never written.
    AppSettings settings(Preferences::standard());
    auto hub = std::make_shared<Hub>(settings, systemReaders());
    hub->sensors.discoverNow();
    hub->devices.startWatching(); // the phones and tablets attached now, read while the ticks run
    for (int tick = 0; tick < 3; ++tick) {
        if (tick > 0) {
            QElapsedTimer waited;
            waited.start();
            while (waited.elapsed() < 1000) {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
                QThread::msleep(20);
            }
        }
        hub->tick();
    }
    hub->devices.waitForReads();
    Live out;
    out.state = {QStringLiteral("live"), HubSnapshot::of(*hub), false,
                 QApplication::palette().color(QPalette::Window).lightness() < 128};
    out.snapshot = PanelSnapshot::from(*hub);
    std::shared_ptr<HistoryStore> store = HistoryStore::openDefault(HistoryStore::Access::readOnly);
    out.loader = [store](std::vector<HistoryMetric> metrics, HistoryRange range, QObject*,
                         std::function<void(HistorySeries)> done) {
        done(store ? store->loadNow(metrics, range) : HistorySeries{});
    };
    return out;
}

} // namespace PanelDump

} // namespace pulsebar
