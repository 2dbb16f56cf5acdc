#include "ui/app/PreferencesWindow.h"

#include <QActionGroup>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QTabWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "model/Model.h"
#include "ui/LedToggle.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

QString text(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

// "system (2 ch)": a device as the picker lists it.
QString deviceLabel(const OutputDevice& device) {
    return text(device.name) + QStringLiteral(" (") + QString::number(device.outputChannels) + QStringLiteral(" ch)");
}

// Fills `picker` with `labels`, ticks and shows `current` (none when out of range) and calls
// `chosen` with the index the user picks.
void fill(StudioMenuPicker& picker, const QStringList& labels, int current, const std::function<void(int)>& chosen) {
    QMenu* menu = picker.menu();
    // Refilled from inside an action's own triggered signal: the old ones go later.
    for (QAction* old : menu->actions()) {
        menu->removeAction(old);
        old->deleteLater();
    }
    for (QActionGroup* old : menu->findChildren<QActionGroup*>(Qt::FindDirectChildrenOnly)) old->deleteLater();
    auto* group = new QActionGroup(menu);
    for (int i = 0; i < labels.size(); ++i) {
        QAction* action = menu->addAction(labels[i]);
        action->setCheckable(true);
        action->setChecked(i == current);
        group->addAction(action);
        QObject::connect(action, &QAction::triggered, &picker, [chosen, i] { chosen(i); });
    }
    picker.setCurrentLabel(current >= 0 && current < labels.size() ? labels[current] : QString());
    picker.setEnabled(!labels.isEmpty());
}

StudioMenuPicker* picker(const QString& name) {
    auto* p = new StudioMenuPicker;
    p->setAccessibleName(name);
    p->setMinimumWidth(280);
    return p;
}

QFormLayout* form() {
    auto* f = new QFormLayout;
    f->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    f->setHorizontalSpacing(14);
    f->setVerticalSpacing(10);
    f->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    return f;
}

QWidget* page(StudioPanel* panel) {
    auto* w = new QWidget;
    auto* column = new QVBoxLayout(w);
    column->setContentsMargins(14, 14, 14, 14);
    column->addWidget(panel);
    column->addStretch();
    return w;
}

// The stock tab bar in the studio's colours: quiet tabs, the open one underlined in the accent.
QString tabStyle() {
    return QStringLiteral(
               "QTabWidget::pane { border: none; }"
               "QTabBar::tab { background: %1; color: %2; padding: 7px 16px; margin-right: 2px;"
               " border: 1px solid %3; border-bottom: 2px solid %3; border-top-left-radius: 4px;"
               " border-top-right-radius: 4px; }"
               "QTabBar::tab:selected { color: %4; border-bottom: 2px solid %5; }")
        .arg(theme::panel.name(), theme::textSecondary.name(), theme::panelBorder.name(), theme::textPrimary.name(),
             theme::accent.name());
}

}  // namespace

PreferencesWindow::PreferencesWindow(Model& model, QWidget* parent)
    : QDialog(parent), model_(model), tabs_(new QTabWidget(this)) {
    setWindowTitle(QStringLiteral("Préférences"));
    setAutoFillBackground(true);
    tabs_->setStyleSheet(tabStyle());
    tabs_->setDocumentMode(true);
    tabs_->addTab(languageTab(), QStringLiteral("Langue"));
    tabs_->addTab(monitoringTab(), QStringLiteral("Monitoring / sortie carte son"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 10, 10, 10);
    layout->addWidget(tabs_);
    resize(620, 380);

    connect(&model_, &Model::reportLanguageChanged, this, &PreferencesWindow::showLanguage);
    for (auto signal : {&Model::liveMonitorEnabledChanged, &Model::liveMonitorDeviceUIDChanged,
                        &Model::liveMonitorChannelLChanged, &Model::liveMonitorChannelRChanged})
        connect(&model_, signal, this, &PreferencesWindow::showRoute);
    showLanguage();
    showRoute();
}

QWidget* PreferencesWindow::languageTab() {
    auto* panel = new StudioPanel;
    auto* f = form();
    language_ = picker(QStringLiteral("Langue des rapports"));
    f->addRow(QStringLiteral("Langue des rapports"), language_);
    auto* column = new QVBoxLayout(panel);
    column->addLayout(f);
    return page(panel);
}

QWidget* PreferencesWindow::monitoringTab() {
    auto* panel = new StudioPanel;
    auto* column = new QVBoxLayout(panel);
    column->setSpacing(12);

    monitoring_ = new LedToggle(QStringLiteral("Monitoring temps réel (expérimental)"));
    connect(monitoring_, &QAbstractButton::clicked, this, [this](bool on) {
        model_.setLiveMonitorEnabled(on);
        model_.saveSettings();
    });
    column->addWidget(monitoring_);

    auto* explanation = new QLabel(QStringLiteral(
        "Routage audio explicite (JACK, PipeWire, ALSA) : compatible UA Apollo, MOTU, Avid MTRX/Carbon, Apogee, RME, "
        "Antelope… Le mode standard (A/B par export WAV) reste prioritaire si désactivé."));
    explanation->setWordWrap(true);
    QPalette quiet = explanation->palette();
    quiet.setColor(QPalette::WindowText, theme::textSecondary);
    explanation->setPalette(quiet);
    column->addWidget(explanation);

    auto* f = form();
    device_ = picker(QStringLiteral("Carte son"));
    left_ = picker(QStringLiteral("Sortie L"));
    right_ = picker(QStringLiteral("Sortie R"));
    f->addRow(QStringLiteral("Carte son"), device_);
    f->addRow(QStringLiteral("Sortie L"), left_);
    f->addRow(QStringLiteral("Sortie R"), right_);
    column->addLayout(f);

    auto* test = new StudioPrimaryButton(QStringLiteral("Tester (sinus 1 kHz · 2 s)"));
    // Its outcome shows in the main window's status line.
    connect(test, &QAbstractButton::clicked, &model_, &Model::testLiveMonitor);
    auto* row = new QHBoxLayout;
    row->addStretch();
    row->addWidget(test);
    column->addLayout(row);
    return page(panel);
}

void PreferencesWindow::showEvent(QShowEvent* event) {
    devices_ = model_.outputDevices();
    showRoute();
    QDialog::showEvent(event);
}

void PreferencesWindow::showLanguage() {
    const QStringList names{text(rawValue(ReportLanguage::fr)), text(rawValue(ReportLanguage::en))};
    fill(*language_, names, model_.reportLanguage() == ReportLanguage::fr ? 0 : 1, [this](int i) {
        model_.setReportLanguage(i == 0 ? ReportLanguage::fr : ReportLanguage::en);
        model_.saveSettings();
    });
}

const OutputDevice* PreferencesWindow::chosenDevice() const {
    const std::string uid = model_.liveMonitorDeviceUID().toStdString();
    const auto it = std::find_if(devices_.begin(), devices_.end(), [&](const OutputDevice& d) { return d.uid == uid; });
    return it == devices_.end() ? nullptr : &*it;
}

void PreferencesWindow::showRoute() {
    monitoring_->setChecked(model_.liveMonitorEnabled());

    QStringList names;
    for (const auto& d : devices_) names << deviceLabel(d);
    const OutputDevice* device = chosenDevice();
    fill(*device_, names, device ? int(device - devices_.data()) : -1, [this](int i) {
        // The channels stay as they are: routing clamps them to the new device.
        model_.setLiveMonitorDeviceUID(QString::fromStdString(devices_[std::size_t(i)].uid));
        model_.saveSettings();
    });
    // A device remembered but gone stays chosen, so it comes back when plugged in again.
    if (!device && !model_.liveMonitorDeviceUID().isEmpty())
        device_->setCurrentLabel(model_.liveMonitorDeviceUID() + QStringLiteral(" (introuvable)"));

    QStringList channels;
    if (device)
        for (const auto& c : device->channelNames) channels << text(c);
    // Shown as routing will apply them: clamped to the device's channels.
    const auto shown = [&](int channel) { return channels.isEmpty() ? -1 : std::clamp(channel, 0, int(channels.size()) - 1); };
    fill(*left_, channels, shown(model_.liveMonitorChannelL()), [this](int i) {
        model_.setLiveMonitorChannelL(i);
        model_.saveSettings();
    });
    fill(*right_, channels, shown(model_.liveMonitorChannelR()), [this](int i) {
        model_.setLiveMonitorChannelR(i);
        model_.saveSettings();
    });
}

}  // namespace velmora
