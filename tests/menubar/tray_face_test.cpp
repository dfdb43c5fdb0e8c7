#include "core/fmt.h"
#include "menubar/status_item_controller.h"
#include "menubar/tray_face.h"
#include "menubar/tray_icon_renderer.h"
#include "menubar/tray_preferences.h"
#include "platform/linux/tray_desktop.h"

#include "../support/test_support.h"

#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

const QString fs(1, TrayFaces::figureSpace);

HubSnapshot sample()
{
    HubSnapshot r;
    r.time = 1773481260; // 2026-03-14 09:41 UTC
    r.cpuUser = 30;
    r.cpuSystem = 12.4;
    r.cpuHistory = {10, 50, 100};
    r.memoryPressure = 45;
    r.memoryPressureLevel = MemoryPressureLevel::warning;
    r.memoryUsed = 61.6;
    r.startupVolume = LiveVolume{100, 93};
    r.internetReachable = true;
    r.upload = 1.2 * 1024 * 1024;
    r.download = 36 * 1024 * 1024;
    r.uploadHistory = {0, 1024};
    r.downloadHistory = {4096, 8192};
    r.menubarTemperature = 55.4;
    r.fastestFanRpm = 2400;
    r.batteryPresent = true;
    r.batteryPercent = 80;
    return r;
}

TrayFace faceOf(ModuleKind kind, DisplayStyle style, bool valueInIcon, const HubSnapshot& r = sample())
{
    return TrayFaces::face({kind, true, style}, r, Config{}, valueInIcon);
}

} // namespace

// What each item shows in a tray: which icon, and the one-line label padded to its template.
TEST(TrayFace, IconAndLabelPerModuleAndStyle)
{
    HubSnapshot offline = sample();
    offline.internetReachable = false;
    const struct {
        const char* name;
        ModuleKind kind;
        DisplayStyle style;
        HubSnapshot readings;
        TrayFace::Icon icon;
        QString iconPart; // the symbol's name, or the first graphic's kind
        QString label;
    } cases[] = {
        {"cpu graph and text", ModuleKind::cpu, DisplayStyle::graphAndText, sample(), TrayFace::Icon::graphic, "graph",
         fs + "42%"},
        {"cpu text shows its symbol", ModuleKind::cpu, DisplayStyle::text, sample(), TrayFace::Icon::symbol, "cpu",
         fs + "42%"},
        {"cpu icon has no label", ModuleKind::cpu, DisplayStyle::icon, sample(), TrayFace::Icon::symbol, "cpu", ""},
        {"network on one line", ModuleKind::network, DisplayStyle::text, sample(), TrayFace::Icon::symbol, "network",
         "↑ " + fs + "1.2 MB/s ↓ 36.0 MB/s"},
        {"network offline", ModuleKind::network, DisplayStyle::graph, offline, TrayFace::Icon::symbol, "network.slash",
         ""},
        {"sensors with a fan", ModuleKind::sensors, DisplayStyle::iconAndText, sample(), TrayFace::Icon::symbol,
         "thermometer.medium", fs + "55° 2400 rpm"},
        {"disks", ModuleKind::disks, DisplayStyle::iconAndText, sample(), TrayFace::Icon::symbol, "internaldrive",
         fs + fs + "7%"},
        {"battery graph", ModuleKind::battery, DisplayStyle::graph, sample(), TrayFace::Icon::graphic, "battery", ""},
        {"memory gauge", ModuleKind::memory, DisplayStyle::graphAndText, sample(), TrayFace::Icon::graphic, "bar",
         fs + "62%"},
    };
    const auto partName = [](const TrayFace& face) -> QString {
        if (face.iconParts.empty())
            return {};
        const MenuBarPart& p = face.iconParts.front();
        switch (p.kind) {
        case MenuBarPart::Kind::symbol: return p.text;
        case MenuBarPart::Kind::graph: return "graph";
        case MenuBarPart::Kind::bar: return "bar";
        case MenuBarPart::Kind::battery: return "battery";
        default: return "other";
        }
    };
    for (const auto& c : cases) {
        const TrayFace face = TrayFaces::face({c.kind, true, c.style}, c.readings, Config{}, false);
        EXPECT_EQ(face.icon, c.icon) << c.name;
        EXPECT_EQ(partName(face), c.iconPart) << c.name;
        EXPECT_EQ(face.label, c.label) << c.name;
    }
    EXPECT_EQ(faceOf(ModuleKind::network, DisplayStyle::text, false).labelGuide, "↑ 1023 MB/s ↑ 1023 MB/s");
    EXPECT_EQ(faceOf(ModuleKind::cpu, DisplayStyle::text, false).labelGuide, "100%");
}

// Trays without labels get the value in the icon: digits without their unit, a level bar for shares.
TEST(TrayFace, ValueInIconReplacesTheLabel)
{
    HubSnapshot r = sample();
    r.batteryPercent = 9;
    const struct {
        ModuleKind kind;
        DisplayStyle style;
        TrayFace::Icon icon;
        TrayIconValue value;
    } cases[] = {
        {ModuleKind::cpu, DisplayStyle::graphAndText, TrayFace::Icon::value, {"42", {}, 0.424, PartColor::blue}},
        {ModuleKind::memory, DisplayStyle::text, TrayFace::Icon::value, {"62", {}, 0.616, PartColor::yellow}},
        {ModuleKind::battery, DisplayStyle::iconAndText, TrayFace::Icon::value, {"9", {}, 0.09, PartColor::red}},
        {ModuleKind::sensors, DisplayStyle::text, TrayFace::Icon::value, {"55°", {}, std::nullopt, PartColor::foreground}},
        {ModuleKind::network, DisplayStyle::text, TrayFace::Icon::value, {"36M", {}, std::nullopt, PartColor::blue}},
        // Styles without text keep their picture.
        {ModuleKind::cpu, DisplayStyle::graph, TrayFace::Icon::graphic, {}},
        {ModuleKind::cpu, DisplayStyle::icon, TrayFace::Icon::symbol, {}},
    };
    for (const auto& c : cases) {
        const TrayFace face = TrayFaces::face({c.kind, true, c.style}, r, Config{}, true);
        EXPECT_EQ(face.icon, c.icon) << enumName(c.kind).toStdString();
        EXPECT_TRUE(face.label.isEmpty());
        if (c.icon != TrayFace::Icon::value)
            continue;
        EXPECT_EQ(face.value.digits, c.value.digits) << enumName(c.kind).toStdString();
        EXPECT_EQ(face.value.color, c.value.color) << enumName(c.kind).toStdString();
        EXPECT_EQ(face.value.fraction.has_value(), c.value.fraction.has_value());
        if (c.value.fraction)
            EXPECT_NEAR(*face.value.fraction, *c.value.fraction, 1e-9);
    }
    for (auto [bytes, text] : std::initializer_list<std::pair<double, const char*>>{
             {0, "0"}, {999, "999"}, {1000, "1.0K"}, {1536, "1.5K"}, {512 * 1024, "512K"}, {38.5 * 1048576, "39M"}})
        EXPECT_EQ(TrayFaces::compactRate(bytes, false), text) << bytes;
    EXPECT_EQ(TrayFaces::compactRate(125000, true), "1.0M");
}

TEST(TrayFace, TooltipsSayWhyAValueCanNeverCome)
{
    HubSnapshot r = sample();
    r.menubarTemperature.reset();
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::sensors, r, {}), "—\n2400 rpm"); // discovery still running
    r.sensorsReady = true;
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::sensors, r, {}), "No temperature sensors found on this computer");
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::gpu, r, {}), "No graphics processor found on this computer");
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::network, sample(), {}), "↑ 1.2 MB/s\n↓ 36.0 MB/s");

    // Weather and sun in words, before and after there is something to say.
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::weather, r, {}), "Waiting for the first weather report");
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::astronomy, r, {}), "No sunrise or sunset ahead");
    r.weather = HubSnapshot::Weather{"cloud.sun.fill", -3.6, "Partly Cloudy"};
    r.nextSunEvent = HubSnapshot::SunEvent{true, 1773468000}; // 06:00 UTC
    Config fahrenheit;
    fahrenheit.temperatureUnit = TempUnit::fahrenheit;
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::weather, r, fahrenheit), "Partly Cloudy, 26°");
    EXPECT_EQ(MenuBarContent::toolTip(ModuleKind::astronomy, r, {}),
              "Sunrise at " + Fmt::time(QDateTime::fromSecsSinceEpoch(1773468000, QTimeZone::utc()),
                                        QTimeZone::systemTimeZone()));
}

// Square icons: every size the tray may pick, big-endian ARGB, and drawn light on a dark panel.
TEST(TrayIconRenderer, SquarePixmapsForThePanelTheySitOn)
{
    const TrayFace face = faceOf(ModuleKind::cpu, DisplayStyle::iconAndText, false);
    const std::vector<TrayPixmap> pixmaps = TrayIconRenderer::pixmaps(face, true, false);
    std::vector<int> sizes;
    for (const TrayPixmap& p : pixmaps) {
        EXPECT_EQ(p.width, p.height);
        EXPECT_EQ(p.argb.size(), p.width * p.height * 4);
        sizes.push_back(p.width);
    }
    EXPECT_EQ(sizes, (std::vector<int>{16, 22, 24, 32, 48, 64}));

    QImage one(1, 1, QImage::Format_ARGB32);
    one.setPixel(0, 0, qRgba(0x11, 0x22, 0x33, 0xff));
    EXPECT_EQ(TrayIconRenderer::pixmap(one).argb, QByteArray("\xff\x11\x22\x33", 4));

    // The brightness of what is drawn, weighted by coverage: light on a dark panel, dark on a light one.
    const auto inkLightness = [](const QImage& image) {
        double sum = 0, weight = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                sum += c.alphaF() * c.lightnessF();
                weight += c.alphaF();
            }
        return weight > 0 ? sum / weight : -1.0;
    };
    for (ModuleKind kind : {ModuleKind::cpu, ModuleKind::disks, ModuleKind::sensors}) {
        const TrayFace symbol = faceOf(kind, DisplayStyle::icon, false);
        const QImage dark = TrayIconRenderer::image(symbol, 16, true, false);
        const QImage light = TrayIconRenderer::image(symbol, 16, false, false);
        EXPECT_GT(inkLightness(dark), 0.8) << enumName(kind).toStdString();
        EXPECT_LT(inkLightness(light), 0.2) << enumName(kind).toStdString();
    }
    // A value icon's digits cover a good share of the square, so they read at 16 px.
    const QImage digits = TrayIconRenderer::image(faceOf(ModuleKind::cpu, DisplayStyle::text, true), 16, true, false);
    int covered = 0;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            covered += qAlpha(digits.pixel(x, y)) > 128;
    EXPECT_GT(covered, 40);
}

TEST(TrayPlacement, PanelsOpenBesideTheBarThatHoldsThePoint)
{
    const QRect screen(0, 0, 1920, 1080);
    // A top bar of 32 px, a bottom bar of 40 px, and no bar the desktop told of.
    EXPECT_EQ(StatusItemController::panelAnchor({1500, 10}, screen, QRect(0, 32, 1920, 1048)),
              QRect(QPoint(1500, 0), QPoint(1500, 31)));
    EXPECT_EQ(StatusItemController::panelAnchor({1500, 1060}, screen, QRect(0, 0, 1920, 1040)),
              QRect(QPoint(1500, 1040), QPoint(1500, 1079)));
    EXPECT_EQ(StatusItemController::panelAnchor({300, 12}, screen, screen), QRect(QPoint(300, 0), QPoint(300, 12)));
}

TEST(TrayDesktop, LabelsAndPanelDarknessFromTheDesktop)
{
    EXPECT_TRUE(TrayDesktop::showsLabels("ubuntu:GNOME"));
    EXPECT_TRUE(TrayDesktop::showsLabels("XFCE"));
    EXPECT_FALSE(TrayDesktop::showsLabels("KDE"));
    const struct {
        const char* desktop;
        const char* plasmarc;
        const char* kdeglobals;
        std::optional<bool> dark;
    } cases[] = {
        {"ubuntu:GNOME", "", "", true},
        {"XFCE", "", "", std::nullopt},
        {"KDE", "[Theme]\nname=breeze-dark\n", "", true},
        {"KDE", "[Theme]\nname=breeze-light\n", "[General]\nColorScheme=BreezeDark\n", false},
        {"KDE", "", "[General]\nColorScheme=BreezeDark\n", true},
        {"KDE", "", "[Colors:Window]\nBackgroundNormal=239,240,241\n", false},
        {"KDE", "", "", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TrayDesktop::panelIsDark(c.desktop, c.plasmarc, c.kdeglobals), c.dark) << c.desktop << c.plasmarc;
}

TEST(TrayPreferences, ReadFromThePreferencesFileWithAutoForAnythingElse)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    EXPECT_EQ(TrayPreferences::load(preferences), TrayPreferences{});
    TrayPreferences::setPanel(preferences, TrayPanel::light);
    TrayPreferences::setValueInIcon(preferences, TrayValueInIcon::on);
    EXPECT_EQ(preferences.value("tray.valueInIcon").toString(), "on");
    EXPECT_EQ(TrayPreferences::load(preferences), (TrayPreferences{TrayPanel::light, TrayValueInIcon::on}));
    preferences.setValue("tray.panel", "purple");
    EXPECT_EQ(TrayPreferences::load(preferences).panel, TrayPanel::automatic);
}
