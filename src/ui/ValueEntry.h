#pragma once
// How a control reads out and takes in its value as text, and the small field it opens to have
// a value typed.
//
// A control shows its value at the precision of the step it moves by: "+1.4 dB" for a 0.2 dB
// step, "0.72" for a Q in hundredths, frequencies from 1 kHz on in kHz ("2.35 kHz"), a ratio
// as "4.0:1". What a person types is read the same way back, with a comma or a point, with or
// without the unit: "3,4", "-2.5 dB", "2,5 k" on a frequency.
#include <QLineEdit>
#include <QString>
#include <functional>
#include <optional>

namespace velmora {

struct StepScale {
    double low = 0, high = 1;
    double step = 0.1;
    QString unit;       // "dB", "Hz", "ms", "%", ":1" (stuck to the number) or none
    bool sign = false;  // "+1.4" rather than "1.4"

    // "+1.4 dB", "−18.0 dB", "2.35 kHz", "4.0:1".
    QString text(double value) const;
    // The number alone, as the field starts with: "-18.0", "2350".
    QString editText(double value) const;
    // "−12 à +12 dB", "0.1 à 100 ms", "100 Hz à 2 kHz", "1:1 à 10:1".
    QString rangeText() const;
    // What a person typed, in the control's unit; nothing when it does not read as a number in
    // that unit. The range is not checked here.
    std::optional<double> parse(const QString& typed) const;
    bool contains(double value) const;
};

// The field over a control while its value is typed. Enter takes what was typed when it reads
// as a number within the range (accepted() then closes the field); otherwise the field stays
// open, framed in red, and says why in its tooltip. Escape, or focus going elsewhere, closes it
// with nothing changed. The field deletes itself once closed and gives the focus back to the
// control that opened it.
class ValueEntry : public QLineEdit {
    Q_OBJECT
public:
    // Opens over `area` of `host` (widget coordinates) with `current` selected.
    ValueEntry(const StepScale& scale, double current, QWidget* host, const QRect& area);

    // Why the last Enter was refused; empty when nothing was.
    const QString& problem() const { return problem_; }
    // Enter pressed: what the field would do with the text, without closing it.
    std::optional<double> check();

signals:
    void accepted(double value);

protected:
    void keyPressEvent(QKeyEvent*) override;
    void focusOutEvent(QFocusEvent*) override;

private:
    void close(bool giveFocusBack);
    void refuse(const QString& problem);

    StepScale scale_;
    QString problem_;
    bool closing_ = false;
};

// A control's tooltip: "Seuil — −18.0 dB (−40 à 0 dB)" and the keys that set it.
QString controlToolTip(const QString& name, const QString& value, const QString& range);

}  // namespace velmora
