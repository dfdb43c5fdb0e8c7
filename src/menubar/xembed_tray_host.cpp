#include "menubar/xembed_tray_host.h"

#include <QCursor>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <QMetaObject>
#include <QSystemTrayIcon>
#include <QtEndian>

namespace pulsebar {

namespace {

QIcon iconOf(const std::vector<TrayPixmap>& pixmaps)
{
    QIcon icon;
    for (const TrayPixmap& p : pixmaps) {
        QImage image(p.width, p.height, QImage::Format_ARGB32);
        const auto* from = reinterpret_cast<const uchar*>(p.argb.constData());
        for (int y = 0; y < p.height; ++y) {
            auto* row = reinterpret_cast<quint32*>(image.scanLine(y));
            for (int x = 0; x < p.width; ++x, from += 4)
                row[x] = qFromBigEndian<quint32>(from);
        }
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

QString toolTipOf(const TrayItemContent& content)
{
    return content.toolTipText.isEmpty() ? content.toolTipTitle
                                         : content.toolTipTitle + QLatin1Char('\n') + content.toolTipText;
}

} // namespace

class XEmbedTrayItem : public QObject, public TrayItem {
    Q_OBJECT
public:
    XEmbedTrayItem(const TrayItemContent& content, TrayItemHandlers handlers) : m_handlers(std::move(handlers))
    {
        m_icon.setObjectName(content.id);
        QObject::connect(&m_icon, &QSystemTrayIcon::activated, &m_icon, [this](QSystemTrayIcon::ActivationReason why) {
            const QRect at = m_icon.geometry();
            const QPoint point = at.isEmpty() ? QCursor::pos() : at.center();
            const auto call = [&](const std::function<void(QPoint)>& handler) {
                if (handler)
                    handler(point);
            };
            if (why == QSystemTrayIcon::Context)
                call(m_handlers.contextMenu);
            else if (why == QSystemTrayIcon::MiddleClick)
                call(m_handlers.secondaryActivate);
            else if (why == QSystemTrayIcon::Trigger)
                call(m_handlers.activate);
        });
        apply(content, true);
    }

    void show() { m_icon.show(); }

    void setContent(const TrayItemContent& content) override { apply(content, false); }
    QRect geometry() const override { return m_icon.geometry(); }

private:
    void apply(const TrayItemContent& content, bool first)
    {
        if (first || content.pixmaps != m_content.pixmaps)
            m_icon.setIcon(iconOf(content.pixmaps));
        if (first || toolTipOf(content) != toolTipOf(m_content))
            m_icon.setToolTip(toolTipOf(content));
        m_content = content;
    }

    QSystemTrayIcon m_icon;
    TrayItemHandlers m_handlers;
    TrayItemContent m_content;
};

bool XEmbedTrayHost::isAvailable() const
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

std::unique_ptr<TrayItem> XEmbedTrayHost::createItem(const TrayItemContent& content, TrayItemHandlers handlers)
{
    auto item = std::make_unique<XEmbedTrayItem>(content, std::move(handlers));
    m_waiting.emplace_back(item.get());
    if (m_waiting.size() == 1)
        QMetaObject::invokeMethod(this, &XEmbedTrayHost::showWaiting, Qt::QueuedConnection);
    return item;
}

void XEmbedTrayHost::showWaiting()
{
    // XEmbed trays such as trayer put each new icon at the start of the row: the row is shown last
    // item first, so it reads in the order the items were created.
    for (auto it = m_waiting.rbegin(); it != m_waiting.rend(); ++it)
        if (*it)
            (*it)->show();
    m_waiting.clear();
}

} // namespace pulsebar

#include "xembed_tray_host.moc"
