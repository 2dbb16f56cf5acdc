#pragma once
// What the custom-painted components tell a screen reader. A stock widget gets this from Qt;
// a component that paints itself says it here: its role, the value as it is shown, and for
// numeric ones the number and its range, so assistive tools can read and set it.
#include <QAccessible>
#include <QString>
#include <limits>

class QWidget;

namespace velmora {

struct AccessibleReading {
    QAccessible::Role role = QAccessible::Indicator;
    QString value;  // as shown: "-5.0 LUFS", "+3 dB", "activé"
    // A numeric component fills these; NaN leaves the value interface out.
    double number = std::numeric_limits<double>::quiet_NaN();
    double minimum = std::numeric_limits<double>::quiet_NaN();
    double maximum = std::numeric_limits<double>::quiet_NaN();
    double step = 0;
    bool checkable = false;
    bool checked = false;
};

// Mixed into a component next to QWidget. Its accessible name is the widget's accessibleName(),
// which each component keeps equal to its label or title.
class AccessibleComponent {
public:
    virtual ~AccessibleComponent() = default;
    virtual AccessibleReading accessibleReading() const = 0;
    // Called when assistive technology sets the value; read-only components ignore it.
    virtual void setAccessibleNumber(double) {}
};

// Registers the factory that gives every AccessibleComponent its interface. Each component
// calls it from its constructor; only the first call does anything.
void installStudioAccessibility();

// Tells assistive technology that the value shown by `widget` changed. Costs nothing while no
// screen reader listens.
void announceValueChange(QWidget* widget, double number);
void announceStateChange(QWidget* widget);

}  // namespace velmora
