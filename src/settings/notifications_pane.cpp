#include "settings/settings_panes.h"

#include "alerts/notifier.h"
#include "alerts/rule_engine.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>

namespace pulsebar {

namespace {

constexpr int maximumDuration = 24 * 3600; // seconds
constexpr double thresholdLimit = 1e9;     // KB/s and ms reach far beyond 100

enum Column { enabledColumn, metricColumn, comparisonColumn, thresholdColumn, durationColumn, columnCount };

// Insight and event notifications, the threshold rules, and a way to see that notifications arrive.
class NotificationsPane : public SettingsPane {
public:
    explicit NotificationsPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* top = addSection(QStringLiteral("Notifications"));
        m_service = new QLabel(Notifier::unavailableText, this);
        m_service->setObjectName(QStringLiteral("serviceState"));
        m_service->setWordWrap(true);
        top->addRow(m_service);
        auto* test = named(new QPushButton(Notifier::testButtonTitle, this), QStringLiteral("sendTest"),
                           Notifier::testButtonTitle);
        connect(test, &QPushButton::clicked, this, [this] { m_context.notifier.sendTestNotification(); });
        auto* testRow = new QHBoxLayout;
        testRow->addWidget(test);
        testRow->addStretch(1);
        top->addRow(testRow);
        m_insights = named(new QCheckBox(QStringLiteral("Notify me about insights"), this),
                           QStringLiteral("insightNotifications"), QStringLiteral("Notify me about insights"));
        connect(m_insights, &QCheckBox::toggled, this,
                [this](bool on) { edit([&](Config& c) { c.insightNotifications = on; }); });
        top->addRow(m_insights);

        QFormLayout* events = addSection(QStringLiteral("Events"));
        addEvent(events, QStringLiteral("powerSource"), QStringLiteral("Charger connected / disconnected"),
                 &EventToggles::powerSource);
        addEvent(events, QStringLiteral("batteryCharged"), QStringLiteral("Battery is now charged"),
                 &EventToggles::batteryCharged);
        addEvent(events, QStringLiteral("wifiChanged"), QStringLiteral("Wi-Fi network changed"),
                 &EventToggles::wifiChanged);
        addEvent(events, QStringLiteral("publicIPChanged"), QStringLiteral("Public IP address changed"),
                 &EventToggles::publicIPChanged);
        addEvent(events, QStringLiteral("internetStatus"), QStringLiteral("Internet connection lost / restored"),
                 &EventToggles::internetStatus);
        addEvent(events, QStringLiteral("primaryInterface"), QStringLiteral("Primary network interface changed"),
                 &EventToggles::primaryInterface);

        addSection(QStringLiteral("Rules — notify when a value crosses a threshold"));
        m_table = named(new QTableWidget(0, columnCount, this), QStringLiteral("rules"), QStringLiteral("Rules"));
        m_table->setHorizontalHeaderLabels({QStringLiteral("On"), QStringLiteral("Metric"), QStringLiteral("When"),
                                            QStringLiteral("Threshold"), QStringLiteral("For")});
        m_table->verticalHeader()->hide();
        m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
        m_table->setSelectionMode(QAbstractItemView::SingleSelection);
        m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
        m_table->horizontalHeader()->setSectionResizeMode(metricColumn, QHeaderView::Stretch);
        m_table->setMinimumHeight(200);
        column()->addWidget(m_table);

        auto* buttons = new QHBoxLayout;
        const auto button = [&](const QString& title, const QString& name, const QString& accessible, auto action) {
            auto* b = named(new QPushButton(title, this), name, accessible);
            connect(b, &QPushButton::clicked, this, action);
            buttons->addWidget(b);
        };
        button(QStringLiteral("Add Rule"), QStringLiteral("addRule"), QStringLiteral("Add a rule"), [this] { addRule(); });
        button(QStringLiteral("Remove"), QStringLiteral("removeRule"), QStringLiteral("Remove the selected rule"),
               [this] { removeRule(); });
        buttons->addStretch(1);
        button(QStringLiteral("Move Up"), QStringLiteral("ruleUp"), QStringLiteral("Move the selected rule up"),
               [this] { moveRule(-1); });
        button(QStringLiteral("Move Down"), QStringLiteral("ruleDown"), QStringLiteral("Move the selected rule down"),
               [this] { moveRule(1); });
        column()->addLayout(buttons);
        finish();
    }

    void load(const Config& config) override
    {
        m_service->setVisible(!m_context.notifier.isAvailable());
        setQuietly(m_insights, config.insightNotifications);
        for (const auto& [box, field] : m_events)
            setQuietly(box, config.events.*field);
        if (config.rules != m_rules)
            fillRules(config.rules);
    }

private:
    void addEvent(QFormLayout* form, const QString& name, const QString& label, bool EventToggles::*field)
    {
        auto* box = named(new QCheckBox(label, this), name, label);
        connect(box, &QCheckBox::toggled, this, [this, field](bool on) { edit([&](Config& c) { c.events.*field = on; }); });
        form->addRow(box);
        m_events.emplace_back(box, field);
    }

    void fillRules(const std::vector<Rule>& rules)
    {
        const int selected = m_table->currentRow();
        m_rules = rules;
        m_table->setRowCount(int(rules.size()));
        for (int row = 0; row < int(rules.size()); ++row)
            fillRow(row, rules[std::size_t(row)]);
        if (!rules.empty())
            m_table->selectRow(std::clamp(selected, 0, int(rules.size()) - 1));
    }

    // Every cell is a widget of its own that writes its one field of the row's rule.
    void fillRow(int row, const Rule& rule)
    {
        const QString n = QString::number(row + 1);
        auto* on = named(new QCheckBox(m_table), QStringLiteral("ruleEnabled") + n, QStringLiteral("Rule %1 on").arg(n));
        on->setChecked(rule.enabled);
        connect(on, &QCheckBox::toggled, this, [this, row](bool v) { change(row, [&](Rule& r) { r.enabled = v; }); });
        auto* cell = new QWidget(m_table);
        auto* centre = new QHBoxLayout(cell);
        centre->setContentsMargins(0, 0, 0, 0);
        centre->addWidget(on, 0, Qt::AlignCenter);
        m_table->setCellWidget(row, enabledColumn, cell);

        auto* metric = named(new QComboBox(m_table), QStringLiteral("ruleMetric") + n, QStringLiteral("Rule %1 metric").arg(n));
        for (RuleMetric m : allCases<RuleMetric>())
            metric->addItem(QStringLiteral("%1 (%2)").arg(RuleEngine::title(m), RuleEngine::unit(m)));
        metric->setCurrentIndex(int(rule.metric));
        connect(metric, &QComboBox::currentIndexChanged, this,
                [this, row](int i) { change(row, [&](Rule& r) { r.metric = RuleMetric(i); }); });
        m_table->setCellWidget(row, metricColumn, metric);

        auto* comparison = named(new QComboBox(m_table), QStringLiteral("ruleComparison") + n,
                                 QStringLiteral("Rule %1 comparison").arg(n));
        comparison->addItems({QStringLiteral("is above"), QStringLiteral("is below")});
        comparison->setCurrentIndex(int(rule.comparison));
        connect(comparison, &QComboBox::currentIndexChanged, this,
                [this, row](int i) { change(row, [&](Rule& r) { r.comparison = RuleComparison(i); }); });
        m_table->setCellWidget(row, comparisonColumn, comparison);

        auto* threshold = named(new QDoubleSpinBox(m_table), QStringLiteral("ruleThreshold") + n,
                                QStringLiteral("Rule %1 threshold").arg(n));
        threshold->setRange(-thresholdLimit, thresholdLimit);
        threshold->setDecimals(1);
        threshold->setSuffix(QLatin1Char(' ') + RuleEngine::unit(rule.metric));
        threshold->setValue(rule.threshold);
        threshold->setKeyboardTracking(false);
        connect(threshold, &QDoubleSpinBox::valueChanged, this,
                [this, row](double v) { change(row, [&](Rule& r) { r.threshold = v; }); });
        m_table->setCellWidget(row, thresholdColumn, threshold);

        auto* duration = named(new QSpinBox(m_table), QStringLiteral("ruleDuration") + n,
                               QStringLiteral("Rule %1 duration in seconds").arg(n));
        duration->setRange(0, maximumDuration);
        duration->setSuffix(QStringLiteral(" s"));
        duration->setValue(int(rule.duration));
        duration->setKeyboardTracking(false);
        connect(duration, &QSpinBox::valueChanged, this,
                [this, row](int v) { change(row, [&](Rule& r) { r.duration = v; }); });
        m_table->setCellWidget(row, durationColumn, duration);
    }

    void change(int row, const std::function<void(Rule&)>& apply)
    {
        if (row >= int(m_rules.size()))
            return;
        std::vector<Rule> rules = m_rules;
        apply(rules[std::size_t(row)]);
        const bool unitChanged = rules[std::size_t(row)].metric != m_rules[std::size_t(row)].metric;
        m_rules = rules; // the row's widgets already show the change
        edit([&](Config& c) { c.rules = rules; });
        if (unitChanged)
            if (auto* threshold = qobject_cast<QDoubleSpinBox*>(m_table->cellWidget(row, thresholdColumn)))
                threshold->setSuffix(QLatin1Char(' ') + RuleEngine::unit(m_rules[std::size_t(row)].metric));
    }

    void addRule()
    {
        std::vector<Rule> rules = m_rules;
        rules.push_back(Rule::make(true, RuleMetric::cpu, RuleComparison::above, 90, 60));
        edit([&](Config& c) { c.rules = rules; });
        m_table->selectRow(int(rules.size()) - 1);
    }

    void removeRule()
    {
        const int row = m_table->currentRow();
        if (row < 0 || row >= int(m_rules.size()))
            return;
        std::vector<Rule> rules = m_rules;
        rules.erase(rules.begin() + row);
        edit([&](Config& c) { c.rules = rules; });
    }

    void moveRule(int by)
    {
        const int from = m_table->currentRow();
        const int to = from + by;
        if (from < 0 || to < 0 || to >= int(m_rules.size()))
            return;
        std::vector<Rule> rules = m_rules;
        std::swap(rules[std::size_t(from)], rules[std::size_t(to)]);
        edit([&](Config& c) { c.rules = rules; });
        m_table->selectRow(to);
    }

    QLabel* m_service;
    QCheckBox* m_insights;
    std::vector<std::pair<QCheckBox*, bool EventToggles::*>> m_events;
    QTableWidget* m_table;
    std::vector<Rule> m_rules; // what the table shows
};

} // namespace

SettingsPane* makeNotificationsPane(SettingsContext& context)
{
    return new NotificationsPane(context);
}

} // namespace pulsebar
