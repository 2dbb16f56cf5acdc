#pragma once

namespace velmora::bench {

// The one Qt application of the benchmark process, created on first use: off screen, and a
// QApplication so the batch through the model and the widget paints can share it.
void ensureQtApplication();

}  // namespace velmora::bench
