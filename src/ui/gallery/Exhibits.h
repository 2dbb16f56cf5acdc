#pragma once
// Every studio component in the states worth looking at, each made at its usual size: what the
// gallery window lays out and what --screenshot writes, one PNG per entry and ratio.
#include <QString>
#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

namespace velmora::gallery {

struct Exhibit {
    QString component;  // the class, also the first part of the file name
    QString state;      // a short slug: "min", "m5dB", "dragging-q"
    std::function<std::unique_ptr<QWidget>()> make;
};

std::vector<Exhibit> exhibits();

}  // namespace velmora::gallery
