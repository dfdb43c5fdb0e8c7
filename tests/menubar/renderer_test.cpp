#include "menubar/menu_bar_renderer.h"
#include "menubar/symbols.h"

#include <QImage>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

// A high ratio makes every point 10 pixels, so slot and bar edges land on whole pixels.
constexpr qreal ratio = 10;
const MenuBarRenderer::Context lightContext{ratio, false};

QImage render(const MenuBarParts& parts, bool monochrome = false, MenuBarRenderer::Context context = lightContext)
{
    return MenuBarRenderer::image(parts, monochrome, context).convertToFormat(QImage::Format_ARGB32);
}

bool close(QRgb pixel, const QColor& c, int tolerance = 8)
{
    return std::abs(qRed(pixel) - c.red()) <= tolerance && std::abs(qGreen(pixel) - c.green()) <= tolerance &&
           std::abs(qBlue(pixel) - c.blue()) <= tolerance && qAlpha(pixel) > 240;
}

// Columns (in pixels) holding at least one pixel of the colour.
std::vector<int> columnsWith(const QImage& image, const QColor& c)
{
    std::vector<int> out;
    for (int x = 0; x < image.width(); ++x)
        for (int y = 0; y < image.height(); ++y)
            if (close(image.pixel(x, y), c)) {
                out.push_back(x);
                break;
            }
    return out;
}

int runs(const std::vector<int>& columns)
{
    int count = 0;
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (i == 0 || columns[i] != columns[i - 1] + 1)
            ++count;
    return count;
}

} // namespace

TEST(MenuBarRenderer, ImageIs22PointsHighAndAsWideAsItsPartsAndGaps)
{
    const MenuBarPart text = MenuBarPart::makeText("5%", "100%");
    const MenuBarPart graph = MenuBarPart::makeGraph({0.5}, PartColor::blue);
    const qreal textWidth = MenuBarRenderer::width(text);
    // The template reserves the width of the widest text, whatever is shown now.
    EXPECT_EQ(textWidth, MenuBarRenderer::width(MenuBarPart::makeText("100%", "")));
    EXPECT_GT(textWidth, MenuBarRenderer::width(MenuBarPart::makeText("5%", "")));
    // Wider text than the template wins.
    EXPECT_GT(MenuBarRenderer::width(MenuBarPart::makeText("1000000%", "100%")), textWidth);
    const MenuBarPart stacked = MenuBarPart::makeStacked("↑ 1 KB/s", "↓ 2 KB/s", "↑ 1023 MB/s");
    EXPECT_EQ(MenuBarRenderer::width(stacked), MenuBarRenderer::width(MenuBarPart::makeStacked("", "", "↑ 1023 MB/s")));

    const QImage image = MenuBarRenderer::image({text, graph, MenuBarPart::makeBattery(0.5, false)}, false, {2, false});
    EXPECT_EQ(image.devicePixelRatio(), 2);
    EXPECT_EQ(image.height(), 44);
    EXPECT_EQ(image.width(), int(std::ceil((textWidth + 4 + 26 + 4 + 24) * 2)));

    const QImage empty = MenuBarRenderer::image({}, false, {1, false});
    EXPECT_EQ(empty.width(), 1);
    EXPECT_EQ(empty.height(), 22);
}

TEST(MenuBarRenderer, GraphBarsAreRightAlignedAndTinyValuesDrawNothing)
{
    const QColor blue = MenuBarRenderer::color(PartColor::blue, false);
    const QImage three = render({MenuBarPart::makeGraph({1, 0.5, 1}, PartColor::blue)});
    ASSERT_EQ(three.width(), 260);
    const std::vector<int> columns = columnsWith(three, blue);
    EXPECT_EQ(runs(columns), 3);
    ASSERT_FALSE(columns.empty());
    // Slots are 1.3 pt: the three bars fill the last three slots, the newest touching the right edge.
    EXPECT_GE(columns.front(), 260 - 39);
    EXPECT_GE(columns.back(), 260 - 13);

    // Bars stand on the bottom of the 14 pt box: a half bar reaches half-way up, no higher.
    const int middleBarX = 260 - 2 * 13 + 5;
    EXPECT_TRUE(close(three.pixel(middleBarX, 170), blue));
    EXPECT_FALSE(close(three.pixel(middleBarX, 60), blue));

    // Only the last 20 of many values are drawn; values above 1 are clamped into the box.
    const QImage many = render({MenuBarPart::makeGraph(std::vector<double>(50, 3.0), PartColor::blue)});
    EXPECT_EQ(runs(columnsWith(many, blue)), 20);

    // 0.01 of a 14 pt box is 0.14 pt: under the 0.2 pt cut-off.
    EXPECT_TRUE(columnsWith(render({MenuBarPart::makeGraph({0.01}, PartColor::blue)}), blue).empty());
}

TEST(MenuBarRenderer, MirroredBarsGrowUpAndDownFromTheMiddle)
{
    const QImage image = render({MenuBarPart::makeMirrored({1}, {1})});
    const QColor orange = MenuBarRenderer::color(PartColor::orange, false);
    const QColor blue = MenuBarRenderer::color(PartColor::blue, false);
    const int x = 260 - 5;
    EXPECT_TRUE(close(image.pixel(x, 60), orange));  // upper half
    EXPECT_TRUE(close(image.pixel(x, 160), blue));   // lower half
    EXPECT_FALSE(close(image.pixel(x, 160), orange));
}

TEST(MenuBarRenderer, BatteryFillFollowsChargeAndColourRules)
{
    const QColor red = MenuBarRenderer::color(PartColor::red, false);
    const QColor green = MenuBarRenderer::color(PartColor::green, false);
    // Inner box starts 2 pt into the 21 × 11 body, which starts 5.5 pt down.
    const QPoint insideFill(25, 110);
    EXPECT_TRUE(close(render({MenuBarPart::makeBattery(0.10, false)}).pixel(insideFill), red));
    EXPECT_FALSE(close(render({MenuBarPart::makeBattery(0.10, false)}, true).pixel(insideFill), red));
    EXPECT_TRUE(close(render({MenuBarPart::makeBattery(0.60, true)}).pixel(insideFill), green));
    const QImage discharging = render({MenuBarPart::makeBattery(0.60, false)});
    EXPECT_FALSE(close(discharging.pixel(insideFill), green));
    EXPECT_GT(qAlpha(discharging.pixel(insideFill)), 150);
    // The fill is fraction × inner width: at 60 % it stops before the right end of the 17 pt inner box.
    EXPECT_EQ(qAlpha(discharging.pixel(20 + int(17 * 10 * 0.6) + 15, 110)), 0);
}

TEST(MenuBarRenderer, MonochromeDrawsOnlyTheForegroundColour)
{
    const MenuBarParts parts{MenuBarPart::makeAppGlyph(),
                             MenuBarPart::makeGraph({0.2, 0.9, 0.4}, PartColor::blue),
                             MenuBarPart::makeBar(0.7, PartColor::red),
                             MenuBarPart::makeMirrored({0.5, 1}, {1, 0.3}),
                             MenuBarPart::makeSymbol("cloud.sun.rain.fill", true),
                             MenuBarPart::makeBattery(0.05, true),
                             MenuBarPart::makeStacked("CPU 9%", "MEM 40%", "CPU 100%")};
    const QImage image = render(parts, true, {2, true});
    EXPECT_EQ(image.text("template"), "true");
    int drawn = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            if (qAlpha(p) == 0)
                continue;
            ++drawn;
            ASSERT_EQ(qRed(p) | qGreen(p) | qBlue(p), 0) << x << "," << y;
        }
    EXPECT_GT(drawn, 500);
    // In colour the same parts are not all black.
    EXPECT_EQ(render(parts, false).text("template"), "false");
}

TEST(MenuBarRenderer, SymbolsDrawTheirOwnIconAndAMissingNameDrawsNothing)
{
    const auto opaquePixels = [](const QImage& image) {
        int n = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                n += qAlpha(image.pixel(x, y)) > 0;
        return n;
    };
    EXPECT_EQ(opaquePixels(render({MenuBarPart::makeSymbol("no.such.symbol")})), 0);
    EXPECT_GT(opaquePixels(render({MenuBarPart::makeSymbol("cpu")})), 100);

    // Every name the items and panels use has an icon.
    for (const char* name :
         {"cpu", "display", "memorychip", "internaldrive", "network", "network.slash", "thermometer.medium", "cloud",
          "sunrise.fill", "sunset.fill", "sun.horizon", "globe", "bolt.fill", "sun.max.fill", "moon.stars.fill",
          "cloud.sun.fill", "cloud.moon.fill", "cloud.fill", "cloud.fog.fill", "cloud.drizzle.fill", "cloud.sleet.fill",
          "cloud.rain.fill", "cloud.heavyrain.fill", "cloud.snow.fill", "cloud.sun.rain.fill", "cloud.moon.rain.fill",
          "cloud.bolt.rain.fill", "moonphase.new.moon", "moonphase.waxing.crescent", "moonphase.first.quarter",
          "moonphase.waxing.gibbous", "moonphase.full.moon", "moonphase.waning.gibbous", "moonphase.last.quarter",
          "moonphase.waning.crescent", "iphone", "ipad", "ipodtouch"})
        EXPECT_TRUE(Symbols::exists(name)) << name;

    // Weather icons have colours of their own on dark, sun yellow in the palette on light, and one
    // colour when tinted.
    const QColor darkYellow(0xff, 0xd6, 0x0a), lightYellow(0xff, 0xcc, 0x00);
    const MenuBarPart sun = MenuBarPart::makeSymbol("sun.max.fill", true);
    EXPECT_TRUE(close(render({sun}, false, {ratio, true}).pixel(80, 110), darkYellow));
    EXPECT_TRUE(close(render({sun}, false, {ratio, false}).pixel(80, 110), lightYellow));
    const QImage tinted = render({MenuBarPart::makeSymbol("sun.max.fill", false)}, false, {ratio, false});
    EXPECT_EQ(qRed(tinted.pixel(80, 110)) | qGreen(tinted.pixel(80, 110)) | qBlue(tinted.pixel(80, 110)), 0);
}
