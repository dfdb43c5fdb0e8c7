#include "settings/settings_pane.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace pulsebar {

SettingsPane::SettingsPane(SettingsContext& context, QWidget* parent)
    : QWidget(parent), m_context(context), m_column(new QVBoxLayout(this))
{
    m_column->setContentsMargins(24, 18, 24, 18);
    m_column->setSpacing(8);
}

void SettingsPane::edit(const std::function<void(Config&)>& change)
{
    Config next = config();
    change(next);
    m_context.settings.setConfig(next);
}

QFormLayout* SettingsPane::addSection(const QString& heading)
{
    if (m_column->count() > 0)
        m_column->addSpacing(10);
    auto* title = new QLabel(heading, this);
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    m_column->addWidget(title);
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    form->setContentsMargins(12, 0, 0, 0);
    m_column->addLayout(form);
    return form;
}

QLabel* SettingsPane::addNote(const QString& text, QLayout* into)
{
    auto* note = new QLabel(text, this);
    note->setWordWrap(true);
    note->setForegroundRole(QPalette::PlaceholderText);
    note->setTextInteractionFlags(Qt::TextSelectableByMouse);
    (into ? into : m_column)->addWidget(note);
    return note;
}

QLabel* SettingsPane::addErrorLine(QFormLayout* form, const QString& objectName)
{
    auto* line = new QLabel(this);
    line->setObjectName(objectName);
    line->setWordWrap(true);
    QPalette red = line->palette();
    red.setColor(QPalette::WindowText, QColor(0xd7, 0x3a, 0x2f));
    line->setPalette(red);
    line->hide();
    form->addRow(QString(), line);
    return line;
}

bool SettingsPane::moveSelectedRow(QListWidget* list, int by)
{
    const int from = list->currentRow();
    const int to = from + by;
    if (from < 0 || to < 0 || to >= list->count())
        return false;
    {
        const QSignalBlocker block(list);
        list->insertItem(to, list->takeItem(from));
    }
    list->setCurrentRow(to);
    return true;
}

void SettingsPane::showErrorLine(QLabel* line, const QString& error)
{
    line->setText(error);
    line->setVisible(!error.isEmpty());
}

void SettingsPane::finish()
{
    m_column->addStretch(1);
}

QComboBox* SettingsPane::choice(const QString& objectName, const QString& accessibleName, const QStringList& titles)
{
    auto* box = named(new QComboBox(this), objectName, accessibleName);
    box->addItems(titles);
    return box;
}

QComboBox* SettingsPane::temperatureUnitChoice()
{
    QComboBox* box = choice(QStringLiteral("temperatureUnit"), QStringLiteral("Temperature unit"),
                            {QStringLiteral("Celsius (°C)"), QStringLiteral("Fahrenheit (°F)"), QStringLiteral("Kelvin (K)")});
    connect(box, &QComboBox::currentIndexChanged, this,
            [this](int index) { edit([&](Config& c) { c.temperatureUnit = TempUnit(index); }); });
    return box;
}

QComboBox* SettingsPane::windUnitChoice()
{
    QComboBox* box = choice(QStringLiteral("windUnit"), QStringLiteral("Wind speed unit"),
                            {QStringLiteral("km/h"), QStringLiteral("mph"), QStringLiteral("m/s"), QStringLiteral("knots")});
    connect(box, &QComboBox::currentIndexChanged, this,
            [this](int index) { edit([&](Config& c) { c.windUnit = WindUnit(index); }); });
    return box;
}

void SettingsPane::setQuietly(QComboBox* box, int index)
{
    const QSignalBlocker block(box);
    box->setCurrentIndex(index);
}

void SettingsPane::setQuietly(QAbstractButton* button, bool checked)
{
    const QSignalBlocker block(button);
    button->setChecked(checked);
}

void SettingsPane::setQuietly(QDoubleSpinBox* box, double value)
{
    if (box->hasFocus() && box->text() != box->textFromValue(box->value()))
        return; // being typed in: the typed text stays until it is committed
    const QSignalBlocker block(box);
    box->setValue(value);
}

void SettingsPane::setTextUnlessEditing(QLineEdit* field, const QString& text)
{
    if (field->isModified())
        return;
    field->setText(text); // also clears the modified flag
}

} // namespace pulsebar
