#include "core/config.h"
#include "settings/settings_panes.h"
#include "../support/test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;
using namespace pulsebar::test;

TEST(Dump, RendersEveryModuleInEveryStyleForEachSampleStateWithAnIndex)
{
    QTemporaryDir home;
    const QString out = home.path() + "/render";
    // A dump draws about a hundred panels and runs three real ticks for the live state.
    const RunResult r = runPulsebar({"--dump", out}, home.path(), {}, {}, 300000);
    ASSERT_TRUE(r.finished);
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), QFileInfo(out).absoluteFilePath().toUtf8());

    const QStringList states{"idle", "busy", "hot", "charging", "no-battery", "offline", "monochrome", "dark", "light"};
    const QString index = QString::fromUtf8(readFile(out + "/index.html"));
    for (const QString& state : states) {
        const QImage strip(out + "/" + state + "/strip.png");
        ASSERT_FALSE(strip.isNull()) << state.toStdString();
        EXPECT_EQ(strip.height(), 44); // 22 pt at a ratio of 2
        EXPECT_GT(strip.width(), 400);
        EXPECT_TRUE(index.contains(state + "/strip.png"));
        for (ModuleKind kind : allCases<ModuleKind>())
            for (DisplayStyle style : allCases<DisplayStyle>()) {
                const QString name = QString("%1/%2-%3.png").arg(state, enumName(kind), enumName(style));
                const QImage image(out + "/" + name);
                ASSERT_FALSE(image.isNull()) << name.toStdString();
                EXPECT_EQ(image.height(), 44) << name.toStdString();
                EXPECT_TRUE(index.contains(name)) << name.toStdString();
            }
    }
    // Widths follow the content: the CPU item with graph and text is wider than its text alone, and the
    // battery strip of the state without a battery is narrower than the same state with one.
    EXPECT_GT(QImage(out + "/busy/cpu-graphAndText.png").width(), QImage(out + "/busy/cpu-text.png").width());
    EXPECT_LT(QImage(out + "/no-battery/strip.png").width(), QImage(out + "/busy/strip.png").width());
    EXPECT_EQ(QImage(out + "/busy/cpu-graph.png").width(), 26 * 2);
    EXPECT_GT(QFileInfo(out + "/symbols.png").size(), 5000);
    EXPECT_EQ(QDir(out + "/idle").entryList({"*.png"}).size(), 11 * 5 + 1 + 3 + 12);

    // Every panel of every state, the live one included, as a picture in the index and as its texts.
    for (const QString& state : states + QStringList{"live"}) {
        const QJsonObject panels = QJsonDocument::fromJson(readFile(out + "/" + state + "/panels.json")).object();
        for (const char* module :
             {"combined", "cpu", "gpu", "memory", "disks", "network", "sensors", "battery", "weather", "astronomy", "time"}) {
            const QString name = QString("%1/panel-%2.png").arg(state, module);
            const QImage image(out + "/" + name);
            ASSERT_FALSE(image.isNull()) << name.toStdString();
            EXPECT_EQ(image.width(), 340 * 2) << name.toStdString();
            EXPECT_TRUE(index.contains(name)) << name.toStdString();
            EXPECT_EQ(panels[module].toObject()["module"].toString(), module) << state.toStdString();
        }
        EXPECT_FALSE(QImage(out + "/" + state + "/panel-devices.png").isNull()) << state.toStdString();
        EXPECT_TRUE(index.contains(state + "/panel-devices.png"));
    }
    // Two devices in the sample states, one of them not trusting this computer; none in no-battery.
    const QJsonArray devices =
        QJsonDocument::fromJson(readFile(out + "/idle/panels.json")).object()["devices"].toObject()["sections"].toArray();
    ASSERT_EQ(devices.size(), 2);
    EXPECT_EQ(devices[0].toObject()["title"].toString(), "iPhone");
    EXPECT_EQ(devices[1].toObject()["title"].toString(), "Mira's iPhone");
    EXPECT_EQ(QJsonDocument::fromJson(readFile(out + "/no-battery/panels.json")).object()["devices"].toObject()["sections"]
                  .toArray().size(), 1);
    const QJsonObject busy = QJsonDocument::fromJson(readFile(out + "/busy/panels.json")).object();
    EXPECT_EQ(busy["cpu"].toObject()["headline"].toString(), "88%");
    EXPECT_EQ(QJsonDocument::fromJson(readFile(out + "/no-battery/panels.json")).object()["battery"].toObject()["sections"]
                  .toArray()[0].toObject()["rows"].toArray()[0].toObject()["value"].toString(),
              "This computer has no battery.");

    // Every settings pane, light and dark, at the window's size; the dark one is dark.
    for (const SettingsPaneEntry& pane : settingsPanes()) {
        const QImage light(out + "/settings-" + pane.id + ".png");
        const QImage dark(out + "/settings-" + pane.id + "-dark.png");
        ASSERT_EQ(light.size(), QSize(840, 580)) << pane.id.toStdString();
        ASSERT_EQ(dark.size(), QSize(840, 580)) << pane.id.toStdString();
        EXPECT_GT(light.pixelColor(600, 560).lightness(), 128) << pane.id.toStdString();
        EXPECT_LT(dark.pixelColor(600, 560).lightness(), 128) << pane.id.toStdString();
        EXPECT_TRUE(index.contains("settings-" + pane.id + "-dark.png"));
    }
    // Weather and sky in the states that show them: polar summer, a failed first fetch.
    const QJsonObject hot = QJsonDocument::fromJson(readFile(out + "/hot/panels.json")).object();
    EXPECT_EQ(hot["astronomy"].toObject()["sections"].toArray()[0].toObject()["rows"].toArray()[0].toObject()["label"]
                  .toString(),
              "The sun does not set");
    EXPECT_EQ(QJsonDocument::fromJson(readFile(out + "/offline/panels.json")).object()["weather"].toObject()["sections"]
                  .toArray()[0].toObject()["rows"].toArray()[0].toObject()["label"].toString(),
              "Weather unavailable");
    
    // What a tray shows: a sheet of square icons, two bars, and the labels, a two-line text on one line.
    EXPECT_EQ(QImage(out + "/busy/tray-icons.png").height(), 11 * 30);
    EXPECT_EQ(QImage(out + "/busy/tray-bar-dark.png").height(), 32);
    EXPECT_TRUE(index.contains("busy/tray-bar-light.png"));
    const QString labels = QString::fromUtf8(readFile(out + "/busy/tray-labels.txt"));
    EXPECT_TRUE(labels.contains(QString::fromUtf8("network text: \"↑ ")) && labels.contains(QString::fromUtf8(" ↓ ")))
        << labels.toStdString();
    EXPECT_TRUE(labels.contains("cpu icon: \"\" guide \"\""));
}

TEST(Dump, WithoutAFolderItWritesANewOneHereAndAnUnwritableFolderFails)
{
    QTemporaryDir home;
    // The working folder is the home; rendering every sample state takes a while on a busy machine.
    RunResult r = runPulsebar({"--dump"}, home.path(), {}, {}, 300000);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QString folder = QString::fromUtf8(r.out.trimmed());
    EXPECT_TRUE(QFileInfo(folder).fileName().startsWith("pulsebar-dump-"));
    EXPECT_EQ(QFileInfo(folder).absolutePath(), QFileInfo(home.path()).canonicalFilePath());
    EXPECT_TRUE(QFileInfo::exists(folder + "/index.html"));

    // A folder that cannot be made (a file is in the way), and one that exists but cannot be written,
    // even by root.
    writeFile(home.path() + "/plain-file", "x");
    for (const QString& unwritable : {home.path() + "/plain-file/inside", QStringLiteral("/proc")}) {
        r = runPulsebar({"--dump", unwritable}, home.path());
        EXPECT_EQ(r.exitCode, 1) << unwritable.toStdString();
        EXPECT_TRUE(r.err.contains("pulsebar --dump: Cannot ")) << r.err.constData();
        EXPECT_TRUE(r.err.contains(unwritable.toUtf8())) << r.err.constData();
    }
}
