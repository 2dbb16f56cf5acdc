#include "ui/ValueEntry.h"

#include <QKeyEvent>
#include <QRegularExpression>
#include <QToolTip>
#include <algorithm>
#include <cmath>

#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

bool isHertz(const QString& unit) { return unit == QLatin1String("Hz"); }

QString withUnit(const QString& number, const QString& unit) {
    if (unit.isEmpty()) return number;
    if (unit.startsWith(QLatin1Char(':'))) return number + unit;
    return number + QLatin1Char(' ') + unit;
}

// A range's end as short as it reads: "−40", "+12", "0.1".
QString endText(double value, bool sign) {
    QString text = QString::fromStdString(formatShortest(value == 0 ? 0.0 : value));
    if (text.startsWith(QLatin1Char('-'))) text[0] = QChar(0x2212);
    else if (sign && value > 0) text.prepend(QLatin1Char('+'));
    return text;
}

QString frameStyle(bool refused) {
    using namespace theme;
    return QStringLiteral("QLineEdit#valueEntry { background: %1; color: %2; border: 1px solid %3; border-radius: 3px;"
                          " padding: 0px 2px; selection-background-color: %4; selection-color: %1; }")
        .arg(well.name(), textPrimary.name(), (refused ? zoneRed : accent).name(), accent.name());
}

}  // namespace

QString StepScale::text(double value) const {
    if (isHertz(unit) && std::fabs(snapToStep(value, step)) >= 1000)
        return readableNumber(value / 1000, stepDecimals(step / 1000), sign) + QStringLiteral(" kHz");
    return withUnit(readableNumber(value, stepDecimals(step), sign), unit);
}

QString StepScale::editText(double value) const {
    QString text = readableNumber(value, stepDecimals(step), false);
    if (text.startsWith(QChar(0x2212))) text[0] = QLatin1Char('-');  // the key a person types
    return text;
}

QString StepScale::rangeText() const {
    const auto end = [this](double v) { return endText(v, sign); };
    const QString to = QStringLiteral(" à ");
    if (isHertz(unit)) {
        const bool lowK = std::fabs(low) >= 1000, highK = std::fabs(high) >= 1000;
        if (lowK && highK) return end(low / 1000) + to + end(high / 1000) + QStringLiteral(" kHz");
        if (highK) return end(low) + QStringLiteral(" Hz") + to + end(high / 1000) + QStringLiteral(" kHz");
    }
    if (unit.startsWith(QLatin1Char(':'))) return end(low) + unit + to + end(high) + unit;
    return withUnit(end(low) + to + end(high), unit);
}

std::optional<double> StepScale::parse(const QString& typed) const {
    QString t;
    for (QChar c : typed) {
        if (c.isSpace()) continue;
        if (c == QChar(0x2212)) c = QLatin1Char('-');
        if (c == QLatin1Char(',')) c = QLatin1Char('.');
        t += c;
    }
    static const QRegularExpression number(QStringLiteral(R"(^([+-]?(?:\d+(?:\.\d*)?|\.\d+))(.*)$)"));
    const QRegularExpressionMatch m = number.match(t);
    if (!m.hasMatch()) return std::nullopt;
    bool ok = false;
    double value = m.captured(1).toDouble(&ok);  // QString reads numbers in the "C" locale
    if (!ok || !std::isfinite(value)) return std::nullopt;
    const QString rest = m.captured(2).toLower();
    QString own = unit.toLower();
    own.remove(QLatin1Char(' '));
    if (rest.isEmpty() || rest == own) return value;
    if (isHertz(unit) && (rest == QLatin1String("k") || rest == QLatin1String("khz"))) return value * 1000;
    return std::nullopt;
}

bool StepScale::contains(double value) const {
    const double lo = std::min(low, high), hi = std::max(low, high);
    const double slack = 1e-9 * std::max(1.0, hi - lo);  // "0.3" typed for a range read from 0.3
    return value >= lo - slack && value <= hi + slack;
}

ValueEntry::ValueEntry(const StepScale& scale, double current, QWidget* host, const QRect& area)
    : QLineEdit(host), scale_(scale) {
    setObjectName(QStringLiteral("valueEntry"));
    setAlignment(Qt::AlignCenter);
    setFont(theme::monoFont(theme::readoutPx));
    setStyleSheet(frameStyle(false));
    setAccessibleName(QStringLiteral("Saisir une valeur"));
    setToolTip(QStringLiteral("Plage : %1\nEntrée : valider · Échap : annuler").arg(scale_.rangeText()));
    setText(scale_.editText(current));
    setGeometry(area);
    show();
    raise();
    setFocus(Qt::OtherFocusReason);
    selectAll();
}

std::optional<double> ValueEntry::check() {
    const std::optional<double> value = scale_.parse(text());
    if (!value) {
        refuse(QStringLiteral("Nombre illisible : « %1 ». Plage : %2").arg(text().trimmed(), scale_.rangeText()));
        return std::nullopt;
    }
    if (!scale_.contains(*value)) {
        refuse(QStringLiteral("Valeur hors plage : %1").arg(scale_.rangeText()));
        return std::nullopt;
    }
    problem_.clear();
    return value;
}

void ValueEntry::refuse(const QString& problem) {
    problem_ = problem;
    setToolTip(problem);
    setStyleSheet(frameStyle(true));
    QToolTip::showText(mapToGlobal(QPoint(0, height())), problem, this);
    selectAll();
}

void ValueEntry::keyPressEvent(QKeyEvent* e) {
    switch (e->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // Taken here, never passed on: the control under the field would open a new one.
        if (const auto value = check()) {
            emit accepted(*value);
            close(true);
        }
        e->accept();
        return;
    case Qt::Key_Escape:
        close(true);
        e->accept();
        return;
    default: QLineEdit::keyPressEvent(e);
    }
}

void ValueEntry::focusOutEvent(QFocusEvent* e) {
    QLineEdit::focusOutEvent(e);
    // The field's own context menu takes the focus for a moment: the field stays.
    if (e->reason() != Qt::PopupFocusReason) close(false);
}

void ValueEntry::close(bool giveFocusBack) {
    if (closing_) return;
    closing_ = true;
    if (!problem_.isEmpty()) QToolTip::hideText();
    QWidget* host = parentWidget();
    hide();
    if (giveFocusBack && host) host->setFocus(Qt::OtherFocusReason);
    deleteLater();
}

QString controlToolTip(const QString& name, const QString& value, const QString& range) {
    return QStringLiteral("%1 — %2 (%3)\nEntrée ou clic droit : saisir · molette après un clic : régler")
        .arg(name, value, range);
}

}  // namespace velmora
