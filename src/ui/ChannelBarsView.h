#pragma once
// Each channel of a multichannel programme as two bars over one scale: its weighted loudness
// contribution (LUFS) and its true peak (dBTP), named by the layout (L R C LFE Ls Rs …).
#include <QString>
#include <QWidget>
#include <vector>

#include "ui/LayerCache.h"

namespace velmora {

class ChannelBarsView : public QWidget {
    Q_OBJECT
public:
    struct Channel {
        QString label;
        double loudnessLUFS;  // -inf: does not count (the LFE) or silent
        double truePeakDB;
        bool operator==(const Channel&) const = default;
    };

    explicit ChannelBarsView(QWidget* parent = nullptr);
    void setChannels(std::vector<Channel> channels);
    const std::vector<Channel>& channels() const { return channels_; }
    // "L -23.0 LUFS -20.0 dBTP" for channel `index`, as drawn and as screen readers say it.
    QString channelText(std::size_t index) const;

    QSize sizeHint() const override { return QSize(int(channels_.size()) * 34 + 30, 110); }
    QSize minimumSizeHint() const override { return QSize(120, 90); }

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    void draw(QPainter& p) const;

    std::vector<Channel> channels_;
    LayerCache layer_;
};

}  // namespace velmora
