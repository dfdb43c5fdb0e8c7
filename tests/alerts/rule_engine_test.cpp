#include "alerts/rule_engine.h"

#include "../support/recording_notifier.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

constexpr double launch = 1000;

Rule rule(RuleMetric metric, RuleComparison comparison, double threshold, double duration, QString id = "r1")
{
    Rule r = Rule::make(true, metric, comparison, threshold, duration);
    r.id = id;
    return r;
}

HubSnapshot cpuAt(double percent)
{
    HubSnapshot s;
    s.cpuUser = percent;
    return s;
}

// One engine that started at `launch`, with only the rules a test gives it and every event switched off.
struct RuleRun {
    test::HubFixture fixture;
    test::RecordingNotifier notifier;
    RuleEngine engine{fixture.hub, launch, notifier};
    Config config;

    explicit RuleRun(std::vector<Rule> rules = {})
    {
        config.rules = std::move(rules);
        config.events = EventToggles{false, false, false, false, false, false};
    }
    // Seconds after the silence, so that t = 0 is the first tick that may notify.
    void at(double t, const HubSnapshot& state) { engine.evaluate(state, config, launch + 5.5 + t); }
    void hold(double from, double to, const HubSnapshot& state)
    {
        for (double t = from; t <= to; t += 1)
            at(t, state);
    }
    std::vector<QString> titles() const
    {
        std::vector<QString> out;
        for (const auto& n : notifier.posts)
            out.push_back(n.title);
        return out;
    }
};

} // namespace

TEST(RuleEngine, FiresOnceAfterItsDurationAndRearmsAtTheThreshold)
{
    RuleRun run({rule(RuleMetric::cpu, RuleComparison::above, 90, 30)});
    run.hold(0, 29, cpuAt(95));
    run.at(30, cpuAt(85)); // 29 s was not long enough, and the episode is over
    EXPECT_TRUE(run.notifier.posts.empty());

    run.hold(31, 60, cpuAt(95));
    EXPECT_TRUE(run.notifier.posts.empty());
    run.at(61, cpuAt(95)); // 30 s since 31
    ASSERT_EQ(run.notifier.posts.size(), 1u);
    EXPECT_EQ(run.notifier.posts[0], (Notification{"CPU usage is above 90 %", "Currently 95 % for 30 seconds."}));

    run.hold(62, 200, cpuAt(91));
    EXPECT_EQ(run.notifier.posts.size(), 1u);

    // 90 is not above 90: the rule re-arms, and needs a full duration again.
    run.at(201, cpuAt(90));
    run.hold(202, 231, cpuAt(97.25));
    EXPECT_EQ(run.notifier.posts.size(), 1u);
    run.at(232, cpuAt(97.25));
    ASSERT_EQ(run.notifier.posts.size(), 2u);
    EXPECT_EQ(run.notifier.posts[1].body, "Currently 97.2 % for 30 seconds.");
}

TEST(RuleEngine, ZeroDurationFiresAtOnceWithoutADurationInTheBody)
{
    Rule low = rule(RuleMetric::batteryLevel, RuleComparison::below, 15, 0);
    RuleRun run({low});
    HubSnapshot s;
    s.batteryPresent = true;
    s.batteryPercent = 15; // not below 15
    run.at(0, s);
    EXPECT_TRUE(run.notifier.posts.empty());
    s.batteryPercent = 14;
    run.at(1, s);
    ASSERT_EQ(run.notifier.posts.size(), 1u);
    EXPECT_EQ(run.notifier.posts[0], (Notification{"Battery level is below 15 %", "Currently 14 %."}));

    // A fractional duration is quoted in whole seconds.
    RuleRun fractional({rule(RuleMetric::temperature, RuleComparison::above, 80.5, 2.9)});
    HubSnapshot hot;
    hot.cpuTemperature = 85;
    fractional.hold(0, 3, hot);
    ASSERT_EQ(fractional.notifier.posts.size(), 1u);
    EXPECT_EQ(fractional.notifier.posts[0],
              (Notification{"CPU temperature is above 80.5 °C", "Currently 85 °C for 2 seconds."}));
}

TEST(RuleEngine, NothingInTheFirstFiveSecondsAfterCreation)
{
    test::HubFixture fixture;
    test::RecordingNotifier notifier;
    RuleEngine engine(fixture.hub, launch, notifier);
    Config config;
    config.rules = {rule(RuleMetric::cpu, RuleComparison::above, 10, 0)};
    HubSnapshot battery = cpuAt(50);
    battery.batteryPresent = true;
    battery.onAC = true;
    engine.evaluate(battery, config, launch);
    battery.onAC = false;
    engine.evaluate(battery, config, launch + 5.0); // neither a rule nor an event, nor a state to compare with
    EXPECT_TRUE(notifier.posts.empty());
    engine.evaluate(battery, config, launch + 5.01);
    ASSERT_EQ(notifier.posts.size(), 1u);
    EXPECT_EQ(notifier.posts[0].title, "CPU usage is above 10 %");
}

TEST(RuleEngine, RulesRunInOrderSkipDisabledOnesAndIgnoreUnknownValues)
{
    Rule disabled = rule(RuleMetric::cpu, RuleComparison::above, 0, 0, "off");
    disabled.enabled = false;
    RuleRun run({rule(RuleMetric::memoryUsed, RuleComparison::above, 50, 0, "a"), disabled,
                 rule(RuleMetric::gpu, RuleComparison::below, 100, 0, "b"),
                 rule(RuleMetric::ping, RuleComparison::below, 100, 0, "c"),
                 rule(RuleMetric::diskUsed, RuleComparison::above, 0, 0, "d"),
                 rule(RuleMetric::download, RuleComparison::above, 1999, 0, "e")});
    HubSnapshot s = cpuAt(99);
    s.memoryUsed = 56.25;
    s.download = 2'048'000;
    run.at(0, s); // no GPU, no ping, no startup volume: those rules cannot hold
    EXPECT_EQ(run.titles(), (std::vector<QString>{"Memory used is above 50 %", "Download speed is above 1999 KB/s"}));
    EXPECT_EQ(run.notifier.posts[0].body, "Currently 56.2 %.");
    EXPECT_EQ(run.notifier.posts[1].body, "Currently 2000 KB/s.");

    s.gpuUtilization = 12;
    s.pingMs = 18.4;
    s.startupVolume = LiveVolume{1000, 250};
    run.at(1, s);
    EXPECT_EQ(run.titles().size(), 5u);
    EXPECT_EQ(run.notifier.posts[2], (Notification{"GPU usage is below 100 %", "Currently 12 %."}));
    EXPECT_EQ(run.notifier.posts[3], (Notification{"Ping time is below 100 ms", "Currently 18.4 ms."}));
    EXPECT_EQ(run.notifier.posts[4], (Notification{"Startup disk used is above 0 %", "Currently 75 %."}));
}

TEST(RuleEngine, SwitchingARuleOffEndsItsEpisode)
{
    RuleRun run({rule(RuleMetric::cpu, RuleComparison::above, 50, 10)});
    run.hold(0, 10, cpuAt(60));
    ASSERT_EQ(run.notifier.posts.size(), 1u);
    run.config.rules[0].enabled = false;
    run.hold(11, 20, cpuAt(60));
    run.config.rules[0].enabled = true;
    run.hold(21, 30, cpuAt(60)); // a full duration again, counted from being switched on
    EXPECT_EQ(run.notifier.posts.size(), 1u);
    run.at(31, cpuAt(60));
    EXPECT_EQ(run.notifier.posts.size(), 2u);
}

TEST(RuleEngine, ValuesAndFormats)
{
    EXPECT_EQ(RuleEngine::format(80), "80");
    EXPECT_EQ(RuleEngine::format(80.5), "80.5");
    EXPECT_EQ(RuleEngine::format(79.96), "80.0");
    EXPECT_EQ(RuleEngine::format(-1), "-1");

    HubSnapshot s;
    s.download = 2'048'000;
    s.upload = 512;
    EXPECT_EQ(RuleEngine::value(RuleMetric::download, s), 2000.0);
    EXPECT_EQ(RuleEngine::value(RuleMetric::upload, s), 0.5);
    EXPECT_EQ(RuleEngine::value(RuleMetric::memoryUsed, s), 0.0); // never unknown
    EXPECT_FALSE(RuleEngine::value(RuleMetric::batteryLevel, s));
    EXPECT_FALSE(RuleEngine::value(RuleMetric::temperature, s));
    s.memoryPressure = 42;
    EXPECT_EQ(RuleEngine::value(RuleMetric::memoryPressure, s), 42.0);

    for (RuleMetric metric : allCases<RuleMetric>())
        EXPECT_FALSE(RuleEngine::title(metric).isEmpty() || RuleEngine::unit(metric).isEmpty())
            << enumName(metric).toStdString();
}
