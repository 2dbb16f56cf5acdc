#include "ui/StudioAccessible.h"

#include <QAbstractButton>
#include <QAccessibleWidget>
#include <QWidget>
#include <cmath>

namespace velmora {

namespace {

class ComponentInterface : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    ComponentInterface(QWidget* widget, AccessibleComponent* component)
        : QAccessibleWidget(widget, component->accessibleReading().role), component_(component) {}

    QAccessible::Role role() const override { return component_->accessibleReading().role; }

    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value) return component_->accessibleReading().value;
        return QAccessibleWidget::text(t);
    }

    QAccessible::State state() const override {
        QAccessible::State s = QAccessibleWidget::state();
        const AccessibleReading r = component_->accessibleReading();
        s.checkable = r.checkable;
        s.checked = r.checked;
        return s;
    }

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface && !std::isnan(component_->accessibleReading().minimum))
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    // Buttons among the components keep the press a stock button offers to assistive tools.
    QStringList actionNames() const override {
        QStringList names = QAccessibleWidget::actionNames();
        if (button()) names.prepend(pressAction());
        return names;
    }
    void doAction(const QString& name) override {
        if (name == pressAction() && button()) return button()->click();
        QAccessibleWidget::doAction(name);
    }

    QVariant currentValue() const override { return component_->accessibleReading().number; }
    void setCurrentValue(const QVariant& value) override { component_->setAccessibleNumber(value.toDouble()); }
    QVariant maximumValue() const override { return component_->accessibleReading().maximum; }
    QVariant minimumValue() const override { return component_->accessibleReading().minimum; }
    QVariant minimumStepSize() const override { return component_->accessibleReading().step; }

private:
    QAbstractButton* button() const { return qobject_cast<QAbstractButton*>(widget()); }

    AccessibleComponent* component_;
};

QAccessibleInterface* componentFactory(const QString&, QObject* object) {
    auto* widget = qobject_cast<QWidget*>(object);
    auto* component = dynamic_cast<AccessibleComponent*>(object);
    if (!widget || !component) return nullptr;
    return new ComponentInterface(widget, component);
}

}  // namespace

void installStudioAccessibility() {
    static const bool installed = [] {
        QAccessible::installFactory(componentFactory);
        return true;
    }();
    (void)installed;
}

void announceValueChange(QWidget* widget, double number) {
    if (!QAccessible::isActive()) return;
    QAccessibleValueChangeEvent event(widget, number);
    QAccessible::updateAccessibility(&event);
}

void announceStateChange(QWidget* widget) {
    if (!QAccessible::isActive()) return;
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent event(widget, changed);
    QAccessible::updateAccessibility(&event);
}

}  // namespace velmora
