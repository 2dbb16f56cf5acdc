#include "reports/PDFReport.h"

#include <QBuffer>
#include <QFont>
#include <QFontMetricsF>
#include <QImage>
#include <QLinearGradient>
#include <QPageSize>
#include <QPainter>
#include <QPainterPath>
#include <QPdfWriter>

#include <qrencode.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include "norms/Presets.h"
#include "output/MasterDelivery.h"
#include "reports/NormReference.h"
#include "reports/ReportFormat.h"
#include "reports/TextReport.h"

namespace velmora {

namespace {

using namespace reportformat;

// Page geometry in points; QPainter's origin is the top left, PDF's the bottom left.
constexpr double pageWidth = 595, pageHeight = 842;
constexpr double marginLeft = 40, marginRight = pageWidth - 40;
constexpr double fromBottom(double pdfY) { return pageHeight - pdfY; }

QColor rgb(double r, double g, double b, double alpha = 1.0) {
    return QColor::fromRgbF(float(r), float(g), float(b), float(alpha));
}
QColor white(double alpha) { return rgb(1, 1, 1, alpha); }

const QColor pageColour = rgb(0.025, 0.03, 0.04);
const QColor accent = rgb(1.0, 0.62, 0.16);
const QColor ruleColour = rgb(0.22, 0.29, 0.37, 0.75);
const QColor afterHeadGreen = rgb(0.24, 0.82, 0.34);
const QColor passGreen = rgb(0.5, 1.0, 0.55);
const QColor failRed = rgb(1.0, 0.55, 0.5);
const QColor beforeGrey = rgb(0.58, 0.63, 0.70);

struct Words {
    const char* subtitle;
    const char* sourceFile;
    const char* exportedFile;
    const char* channels;
    const char* duration;
    const char* sampleRate;
    const char* preset;
    const char* target;
    const char* ceiling;
    const char* gain;
    const char* stereo;
    const char* measurements;
    const char* metric;
    const char* before;
    const char* after;
    const char* integrated;
    const char* range;
    const char* momentary;
    const char* shortTerm;
    const char* programme;
    const char* dialogue;
    const char* graphTitle;
    const char* legendBefore;
    const char* legendAfter;
    const char* legendTarget;
    const char* verdictPass;
    const char* verdictFail;
    const char* normPrefix;
    std::array<const char*, 4> reasons;  // indexed by VerdictReason
    const char* chain;
    const char* equaliser;
    const char* compressor;
    const char* tonal;
    const char* lra;
    const char* midSide;
    const char* active;
    const char* bypass;
    const char* bypassFeminine;
    const char* maxReduction;
    const char* lraTarget;
    const char* scanCaption;
    const char* generatedOn;
    const char* events;
    const char* noEvents;
    const char* moreEvents;
    const char* truncated;  // after the duration of a source cut short
    const char* customTarget;  // the target's label when it is not the norm's
    const char* customBase;    // "… (base : <norm>)", the norm a custom target started from
    const char* baseNorm;      // stands for "Preset" beside a custom target
};

constexpr Words french{
    "Rapport de mastering · BS.1770-4 / EBU R128",
    "Fichier source",
    "Fichier exporté",
    "Canaux",
    "Durée",
    "Fréquence",
    "Preset",
    "Cible normative",
    "Plafond True Peak",
    "Gain de conformité",
    "Stéréo",
    "Mesures (ITU-R BS.1770-4 / EBU R128)",
    "Métrique",
    "AVANT",
    "APRÈS",
    "Sonie intégrée (I)",
    "Plage de sonie (LRA)",
    "Momentanée max (M)",
    "Court-terme max (S)",
    "Sonie programme (PL)",
    "Sonie dialogue (DL)",
    "Sonie court terme",
    "Avant",
    "Après",
    "Cible",
    "VERDICT : CONFORME",
    "VERDICT : NON CONFORME",
    "Norme : ",
    {"Sonie et True Peak dans la cible", "Intégrée hors cible", "TP au-dessus du plafond", "I & TP hors cible"},
    "Chaîne mastering",
    "Égaliseur",
    "Compresseur bus",
    "EQ tonal",
    "Réduction LRA",
    "Largeur Mid/Side",
    "Actif",
    "Désactivé",
    "Désactivée",
    "réduction max",
    "cible",
    "Scanner pour la norme officielle",
    "Généré le ",
    "Événements de la source",
    "Aucun dépassement ni écrêtage.",
    "… et %1 autres dans le rapport texte",
    " (tronqué)",
    "Cible personnalisée",
    "Personnalisé (base : %1)",
    "Norme de base",
};

constexpr Words english{
    "Mastering Report · BS.1770-4 / EBU R128",
    "Source file",
    "Exported file",
    "Channels",
    "Duration",
    "Sample rate",
    "Preset",
    "Normative target",
    "True Peak ceiling",
    "Conformity gain",
    "Stereo",
    "Measurements (ITU-R BS.1770-4 / EBU R128)",
    "Metric",
    "BEFORE",
    "AFTER",
    "Integrated loudness (I)",
    "Loudness range (LRA)",
    "Momentary max (M)",
    "Short-term max (S)",
    "Programme loudness (PL)",
    "Dialogue loudness (DL)",
    "Short-term loudness",
    "Before",
    "After",
    "Target",
    "VERDICT: COMPLIANT",
    "VERDICT: NON-COMPLIANT",
    "Standard: ",
    {"Loudness and true peak on target", "Integrated loudness off target", "True peak above ceiling",
     "I & TP off target"},
    "Mastering chain",
    "Equalizer",
    "Bus compressor",
    "Tonal EQ",
    "LRA reduction",
    "Mid/Side width",
    "Active",
    "Bypass",
    "Bypass",
    "max reduction",
    "target",
    "Scan for the official standard",
    "Generated on ",
    "Source events",
    "No over and no clipping.",
    "… and %1 more in the text report",
    " (truncated)",
    "Custom target",
    "Custom (base: %1)",
    "Base standard",
};

QString qs(std::string_view utf8) { return QString::fromUtf8(utf8.data(), qsizetype(utf8.size())); }

QString withUnit(double value, const QString& unit) {
    return std::isfinite(value) ? qs(formatOneDecimal(value)) + ' ' + unit : qs(dash);
}
QString withUnit(const std::optional<double>& value, const QString& unit) {
    return value ? withUnit(*value, unit) : qs(dash);
}

QString durationText(double seconds) {
    const long whole = std::isfinite(seconds) && seconds > 0 ? long(seconds) : 0;
    return QString::asprintf("%ld min %02ld s", whole / 60, whole % 60);
}

QString channelFormat(int channels, const Words& w) {
    switch (channels) {
    case 1: return QStringLiteral("Mono");
    case 2: return qs(w.stereo);
    case 6: return QStringLiteral("5.1");
    case 8: return QStringLiteral("7.1 / 5.1.2");
    case 10: return QStringLiteral("5.1.4 / 7.1.2");
    case 12: return QStringLiteral("7.1.4");
    }
    return QString::number(channels) + " ch";
}

// Curve time stamps read as a clock: m:ss, or h:mm:ss for long programmes.
QString clockText(double seconds) {
    const long s = std::lround(seconds);
    if (s >= 3600) return QString::asprintf("%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    return QString::asprintf("%ld:%02ld", s / 60, s % 60);
}

std::vector<std::vector<bool>> qrModules(std::string_view url) {
    const std::string text(url);
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeString(text.c_str(), 0, QR_ECLEVEL_M, QR_MODE_8, 1), &QRcode_free);
    if (!code) return {};
    std::vector<std::vector<bool>> modules(std::size_t(code->width), std::vector<bool>(std::size_t(code->width)));
    for (int y = 0; y < code->width; ++y)
        for (int x = 0; x < code->width; ++x) modules[std::size_t(y)][std::size_t(x)] = code->data[y * code->width + x] & 1;
    return modules;
}

class PageDrawer {
public:
    PageDrawer(QPainter& painter, const ReportInputs& inputs, ReportLanguage language)
        : p_(painter), in_(inputs), language_(language), w_(language == ReportLanguage::en ? english : french),
          norm_(presetAt(inputs.presetIndex)),
          unit_(norm_.unit == LoudnessUnit::lkfs ? QStringLiteral("LKFS") : QStringLiteral("LUFS")),
          custom_(isCustomTarget(norm_, inputs.target, inputs.ceiling)) {}

    void draw() {
        p_.fillRect(QRectF(0, 0, pageWidth, pageHeight), pageColour);
        header();
        facts();
        measurements();
        if (!in_.beforeShortTerm.empty() || !in_.afterShortTerm.empty()) graph();
        if (in_.sourceEvents) events();
        verdict();
        chain();
        qrBlock();
        text(marginLeft, fromBottom(20), qs(w_.generatedOn) + qs(reportDate(in_)), 7, QFont::Normal, white(0.45));
    }

private:
    static QFont font(double size, QFont::Weight weight) {
        QFont f(QStringLiteral("DejaVu Sans"));
        f.setPointSizeF(size);
        f.setWeight(weight);
        f.setHintingPreference(QFont::PreferNoHinting);
        // Ligatures ("fi" as one glyph) would make the text read back or search differently.
        f.setStyleStrategy(QFont::PreferNoShaping);
        return f;
    }

    double textWidth(const QString& s, double size, QFont::Weight weight) const {
        return QFontMetricsF(font(size, weight), p_.device()).horizontalAdvance(s);
    }

    // Draws on a baseline; a text wider than maxWidth loses its middle, which keeps the start and
    // the extension of a file name readable.
    void text(double x, double baseline, QString s, double size, QFont::Weight weight, const QColor& colour,
              Qt::Alignment align = Qt::AlignLeft, double maxWidth = 0) {
        const QFont f = font(size, weight);
        const QFontMetricsF metrics(f, p_.device());
        if (maxWidth > 0) s = metrics.elidedText(s, Qt::ElideMiddle, maxWidth);
        if (align & Qt::AlignRight) x -= metrics.horizontalAdvance(s);
        p_.setFont(f);
        p_.setPen(colour);
        p_.drawText(QPointF(x, baseline), s);
    }

    void sectionHeading(double baseline, const char* title) {
        p_.fillRect(QRectF(marginLeft, baseline - 9.5, 3, 11), accent);
        text(marginLeft + 9, baseline, qs(title), 11, QFont::Bold, white(0.95));
    }

    void header() {
        QLinearGradient band(0, 0, 0, 100);
        band.setColorAt(0, rgb(0.07, 0.085, 0.11));
        band.setColorAt(1, pageColour);
        p_.fillRect(QRectF(0, 0, pageWidth, 100), band);

        QImage icon(QStringLiteral(":/velmora/AppIcon.png"));
        if (icon.isNull()) icon.load(QStringLiteral(":/velmora/velmora_cover.png"));
        if (!icon.isNull()) {
            const QRectF square(marginLeft, fromBottom(pageHeight - 92) - 56, 56, 56);
            QPainterPath rounded;
            rounded.addRoundedRect(square, 12, 12);
            p_.save();
            p_.setClipPath(rounded);
            p_.drawImage(square, icon);
            p_.restore();
        }
        text(108, 60, QStringLiteral("Velmora"), 22, QFont::Bold, Qt::white);
        text(108, 78, qs(w_.subtitle), 9, QFont::Normal, accent);

        // The norm the master was made for, as a tag at the right of the banner.
        const QString label = normName();
        const double pillWidth = textWidth(label, 8, QFont::DemiBold) + 20;
        const QRectF pill(marginRight - pillWidth, 46, pillWidth, 20);
        p_.setPen(QPen(rgb(1.0, 0.62, 0.16, 0.7), 0.8));
        p_.setBrush(rgb(1.0, 0.62, 0.16, 0.08));
        p_.drawRoundedRect(pill, 10, 10);
        text(pill.left() + 10, pill.top() + 13.5, label, 8, QFont::DemiBold, accent);

        p_.setPen(QPen(ruleColour, 0.5));
        p_.drawLine(QPointF(marginLeft, 100), QPointF(marginRight, 100));
    }

    void fact(double x, double top, double width, const char* label, const QString& value) {
        text(x, top, qs(label), 7.5, QFont::Normal, white(0.5), Qt::AlignLeft, width);
        text(x, top + 14, value, 10, QFont::Medium, white(0.95), Qt::AlignLeft, width);
    }

    void facts() {
        const QRectF panel(marginLeft, 112, marginRight - marginLeft, 104);
        p_.setPen(QPen(white(0.07), 0.6));
        p_.setBrush(white(0.03));
        p_.drawRoundedRect(panel, 8, 8);

        const double x0 = marginLeft + 14, xMid = 300;
        const std::string bits = std::to_string(in_.bitDepth) + (in_.isFloat ? " bits flottant" : " bits");
        fact(x0, 130, xMid - x0 - 14, w_.sourceFile, qs(in_.sourceName));
        fact(xMid, 130, marginRight - 14 - xMid, w_.exportedFile, qs(in_.exportedName));

        const double quarter = (marginRight - 14 - x0) / 4;
        fact(x0, 162, quarter - 10, w_.channels, channelFormat(in_.channelCount, w_));
        fact(x0 + quarter, 162, quarter - 10, w_.duration,
             durationText(in_.durationSeconds) + (in_.sourceTruncated ? qs(w_.truncated) : QString()));
        fact(xMid, 162, quarter - 10, w_.sampleRate, qs(formatOneDecimal(in_.sampleRate / 1000.0)) + " kHz");
        fact(xMid + quarter, 162, quarter - 10, "Format", qs(bits));

        fact(x0, 194, xMid - x0 - 14, custom_ ? w_.baseNorm : w_.preset, qs(norm_.label));
        // Narrow columns sized to their longest label in either language; the custom target's
        // label takes the gutter too.
        fact(xMid, 194, custom_ ? 81 : 74, custom_ ? w_.customTarget : w_.target, qs(formatOneDecimal(in_.target)) + ' ' + unit_);
        fact(xMid + 82, 194, 74, w_.ceiling, qs(formatOneDecimal(in_.ceiling)) + " dBTP");
        fact(xMid + 164, 194, 78, w_.gain, qs(formatSignedOneDecimal(in_.gainDB)) + " dB");
        y_ = panel.bottom();
    }

    struct Row {
        QString label, before, after;
    };

    std::vector<Row> tableRows() const {
        const LoudnessResult& b = in_.before;
        const LoudnessResult& a = in_.after;
        const QString lu = QStringLiteral("LU");
        std::vector<Row> rows{
            {qs(w_.integrated), withUnit(b.integratedLUFS, unit_), withUnit(a.integratedLUFS, unit_)},
            {qs(w_.range), withUnit(b.loudnessRange, lu), withUnit(a.loudnessRange, lu)},
            {qs(w_.momentary), withUnit(b.momentaryMax, unit_), withUnit(a.momentaryMax, unit_)},
            {qs(w_.shortTerm), withUnit(b.shortTermMax, unit_), withUnit(a.shortTermMax, unit_)},
            {QStringLiteral("True Peak"), withUnit(b.truePeakDB, "dBTP"), withUnit(a.truePeakDB, "dBTP")},
            {qs("PLR  (TP − I)"), withUnit(difference(b.truePeakDB, b.integratedLUFS), lu),
             withUnit(difference(a.truePeakDB, a.integratedLUFS), lu)},
            {qs("PSR  (TP − S max)"), withUnit(difference(b.truePeakDB, b.shortTermMax), lu),
             withUnit(difference(a.truePeakDB, a.shortTermMax), lu)},
        };
        if (b.programmeLUFS || a.programmeLUFS) {
            // In dialogue mode the integrated reading is the dialogue-gated one; a side measured
            // without dialogue detection has no dialogue loudness to show.
            const auto dialogue = [](const LoudnessResult& r) {
                return r.programmeLUFS ? r.integratedLUFS : std::numeric_limits<double>::quiet_NaN();
            };
            const auto ldr = [&](const LoudnessResult& r) {
                return r.programmeLUFS ? difference(*r.programmeLUFS, r.integratedLUFS)
                                       : std::numeric_limits<double>::quiet_NaN();
            };
            rows.push_back({qs(w_.programme), withUnit(b.programmeLUFS, unit_), withUnit(a.programmeLUFS, unit_)});
            rows.push_back({qs(w_.dialogue), withUnit(dialogue(b), unit_), withUnit(dialogue(a), unit_)});
            rows.push_back({qs("LDR  (PL − DL)"), withUnit(ldr(b), lu), withUnit(ldr(a), lu)});
            const auto share = [](const LoudnessResult& r) {
                return r.dialogueShare ? qs(std::to_string(std::lround(*r.dialogueShare * 100.0)) + " %")
                                       : QStringLiteral("—");
            };
            rows.push_back({qs("Part de dialogue"), share(b), share(a)});
        }
        if (norm_.msLimitLUFS)
            rows.push_back({qs("MSL (Max Short-term) ≤ " + formatFixed(*norm_.msLimitLUFS, 0) + " LUFS"),
                            withUnit(b.shortTermMax, unit_), withUnit(a.shortTermMax, unit_)});
        return rows;
    }

    void measurements() {
        sectionHeading(y_ + 28, w_.measurements);
        const double heads = y_ + 48;
        text(40, heads, qs(w_.metric), 9, QFont::Normal, white(0.55));
        text(320, heads, qs(w_.before), 9, QFont::Normal, white(0.55));
        QColor green = afterHeadGreen;
        green.setAlphaF(0.55f);
        text(460, heads, qs(w_.after), 9, QFont::Normal, green);
        p_.setPen(QPen(ruleColour, 0.5));
        p_.drawLine(QPointF(marginLeft, heads + 6), QPointF(marginRight, heads + 6));

        double baseline = heads + 22;
        bool stripe = false;
        for (const Row& row : tableRows()) {
            if (stripe) p_.fillRect(QRectF(marginLeft - 6, baseline - 12, marginRight - marginLeft + 12, 17), white(0.03));
            stripe = !stripe;
            text(40, baseline, row.label, 10, QFont::Normal, white(0.85));
            text(320, baseline, row.before, 10, QFont::Normal, white(0.6));
            text(460, baseline, row.after, 10, QFont::DemiBold, white(0.97));
            baseline += 17;
        }
        y_ = baseline - 12;
    }

    // Short-term loudness of source and master over time, against the target.
    void graph() {
        const double titleBaseline = y_ + 24;
        // Shorter when the source's events follow it, so the page still holds everything.
        const QRectF plot(marginLeft + 30, titleBaseline + 10, marginRight - marginLeft - 38, in_.sourceEvents ? 62 : 86);
        y_ = plot.bottom() + 16;

        const std::vector<double>& before = in_.beforeShortTerm;
        const std::vector<double>& after = in_.afterShortTerm;
        const double step = in_.curveStepSeconds > 0 ? in_.curveStepSeconds : 1.0;
        const std::size_t points = std::max(before.size(), after.size());
        const double duration = std::max(double(points - 1) * step, step);

        std::vector<double> finite;
        for (const auto* curve : {&before, &after})
            for (double v : *curve)
                if (std::isfinite(v)) finite.push_back(v);
        std::sort(finite.begin(), finite.end());
        const bool hasTarget = std::isfinite(in_.target);
        // The quietest 2 % (fades, pauses) would squash the body of the curve into a thin band.
        double low = finite.empty() ? in_.target : finite[finite.size() / 50];
        double high = finite.empty() ? in_.target : finite.back();
        if (hasTarget) low = std::min(low, in_.target), high = std::max(high, in_.target);
        if (!std::isfinite(low) || !std::isfinite(high)) low = -36, high = -6;
        const double top = std::ceil((high + 1) / 6) * 6;
        const double bottom = std::clamp(std::floor((low - 1) / 6) * 6, top - 48, top - 18);
        const double gridStep = top - bottom > 30 ? 12 : 6;
        const auto yOf = [&](double lufs) { return plot.top() + (top - lufs) / (top - bottom) * plot.height(); };
        const auto xOf = [&](double seconds) { return plot.left() + seconds / duration * plot.width(); };

        text(marginLeft, titleBaseline, qs(w_.graphTitle) + " (" + unit_ + ")", 8.5, QFont::Bold, white(0.8));

        p_.setPen(QPen(white(0.06), 0.5));
        p_.setBrush(white(0.02));
        p_.drawRect(plot);
        for (double level = top; level >= bottom - 1e-9; level -= gridStep) {
            p_.setPen(QPen(white(0.08), 0.4));
            p_.drawLine(QPointF(plot.left(), yOf(level)), QPointF(plot.right(), yOf(level)));
            text(plot.left() - 5, yOf(level) + 2.5, qs(formatFixed(level, 0)), 6.5, QFont::Normal, white(0.45),
                 Qt::AlignRight);
        }
        static constexpr std::array<double, 16> tickSteps{1,   2,   5,    10,   15,   30,   60,   120,
                                                          300, 600, 900, 1200, 1800, 3600, 7200, 14400};
        const double tick = *std::find_if(tickSteps.begin(), tickSteps.end() - 1,
                                          [&](double s) { return duration / s <= 8; });
        for (double t = 0; t <= duration + 1e-9; t += tick) {
            p_.setPen(QPen(white(0.05), 0.4));
            p_.drawLine(QPointF(xOf(t), plot.top()), QPointF(xOf(t), plot.bottom()));
            const QString label = clockText(t);
            const double width = textWidth(label, 6.5, QFont::Normal);
            const double x = std::clamp(xOf(t) - width / 2, plot.left(), plot.right() - width);
            text(x, plot.bottom() + 10, label, 6.5, QFont::Normal, white(0.45));
        }

        p_.save();
        p_.setClipRect(plot);
        const auto runs = [&](const std::vector<double>& curve) {
            // -inf (silence, or the window not yet full) breaks the line rather than diving to the floor.
            std::vector<QPolygonF> out;
            QPolygonF run;
            for (std::size_t i = 0; i < curve.size(); ++i) {
                if (std::isfinite(curve[i])) {
                    run << QPointF(xOf(double(i) * step), yOf(curve[i]));
                } else if (!run.isEmpty()) {
                    out.push_back(run);
                    run.clear();
                }
            }
            if (!run.isEmpty()) out.push_back(run);
            return out;
        };
        p_.setBrush(Qt::NoBrush);
        p_.setPen(QPen(beforeGrey, 0.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        for (const QPolygonF& run : runs(before)) p_.drawPolyline(run);

        const QColor glow = rgb(1.0, 0.62, 0.16, 0.14);
        for (const QPolygonF& run : runs(after)) {
            QPolygonF area = run;
            area << QPointF(run.back().x(), plot.bottom() + 1) << QPointF(run.front().x(), plot.bottom() + 1);
            p_.setPen(Qt::NoPen);
            p_.setBrush(glow);
            p_.drawPolygon(area);
            p_.setBrush(Qt::NoBrush);
            p_.setPen(QPen(accent, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            p_.drawPolyline(run);
        }
        // The source's overs and clipping marked along the time axis, where they lie.
        if (in_.sourceEvents)
            for (const LoudnessEvent& e : *in_.sourceEvents) {
                if (e.kind != EventKind::truePeakOver && e.kind != EventKind::clipping) continue;
                const double x0 = xOf(e.startSeconds), x1 = std::max(xOf(e.endSeconds), x0 + 1.0);
                p_.fillRect(QRectF(x0, plot.bottom() - 5, x1 - x0, 5), e.kind == EventKind::clipping ? failRed : accent);
            }
        if (hasTarget) {
            QPen dashed(afterHeadGreen, 0.9, Qt::CustomDashLine, Qt::FlatCap);
            dashed.setDashPattern({4, 3});
            p_.setPen(dashed);
            p_.drawLine(QPointF(plot.left(), yOf(in_.target)), QPointF(plot.right(), yOf(in_.target)));
        }
        p_.restore();

        // Legend, laid out from the right edge leftwards.
        double x = marginRight;
        const auto legend = [&](const QString& label, const QColor& colour, bool dashed) {
            x -= textWidth(label, 7, QFont::Normal);
            text(x, titleBaseline, label, 7, QFont::Normal, white(0.7));
            x -= 18;
            QPen pen(colour, dashed ? 0.9 : 1.6, dashed ? Qt::CustomDashLine : Qt::SolidLine, Qt::FlatCap);
            if (dashed) pen.setDashPattern({3, 2});
            p_.setPen(pen);
            p_.drawLine(QPointF(x, titleBaseline - 2.5), QPointF(x + 13, titleBaseline - 2.5));
            x -= 12;
        };
        if (hasTarget)
            legend(qs(w_.legendTarget) + ' ' + qs(formatOneDecimal(in_.target)) + ' ' + unit_, afterHeadGreen, true);
        legend(qs(w_.legendAfter), accent, false);
        legend(qs(w_.legendBefore), beforeGrey, false);
    }

    void verdict() {
        const NormVerdict v = custom_ ? normVerdict(in_.after, norm_, in_.target, in_.ceiling, in_.targetMissedLUFS)
                                      : normVerdict(in_.after, norm_, in_.targetMissedLUFS);
        const QColor colour = v.conform ? passGreen : failRed;
        const QRectF box(marginLeft, y_ + 12, marginRight - marginLeft, 64);
        QColor fill = colour;
        fill.setAlphaF(0.07f);
        p_.setPen(QPen(colour, 1.2));
        p_.setBrush(fill);
        p_.drawRoundedRect(box, 8, 8);

        text(box.left() + 16, box.top() + 22, qs(v.conform ? w_.verdictPass : w_.verdictFail), 14, QFont::Black,
             colour);
        const QString readings = "I " + withUnit(in_.after.integratedLUFS, unit_) + qs("  ·  ") + "TP " +
                                 withUnit(in_.after.truePeakDB, "dBTP");
        if (custom_) {
            // The whole line must read, base norm included: it shrinks to the room the readings
            // leave rather than losing its middle.
            const QString line = qs(customTargetLine(in_.target, unit_.toStdString(), norm_.label,
                                                     language_ == ReportLanguage::en));
            const double room = box.width() - 48 - textWidth(readings, 8.5, QFont::Normal);
            double size = 9;
            while (size > 6.5 && textWidth(line, size, QFont::DemiBold) > room) size -= 0.5;
            text(box.left() + 16, box.bottom() - 10, line, size, QFont::DemiBold, white(0.85), Qt::AlignLeft, room);
        } else {
            const double normWidth = box.width() / 2 + 40;
            text(box.left() + 16, box.bottom() - 10, qs(w_.normPrefix) + qs(norm_.label), 9, QFont::DemiBold,
                 white(0.85), Qt::AlignLeft, normWidth);
        }

        const auto reason = std::size_t(v.reason);
        text(box.right() - 16, box.top() + 21, qs(w_.reasons[reason]), 9, QFont::DemiBold, colour, Qt::AlignRight);
        if (in_.targetMissedLUFS) {
            const double lufs = *in_.targetMissedLUFS;
            const std::string missed = language_ == ReportLanguage::en ? targetMissedTextEnglish(lufs)
                                                                       : targetMissedText(lufs);
            text(box.right() - 16, box.top() + 37.5, qs(missed), 8.5, QFont::Normal, colour, Qt::AlignRight);
        } else if (in_.album) {
            // A track of an album: the album's loudness and the one gain, the same on every report.
            const std::string album = "Album " + formatOneDecimal(in_.album->loudnessLUFS) + " LUFS · gain " +
                                      formatSignedOneDecimal(in_.album->gainDB) + " dB";
            text(box.right() - 16, box.top() + 37.5, qs(album), 8.5, QFont::Normal, white(0.7), Qt::AlignRight);
        }
        text(box.right() - 16, box.bottom() - 10, readings, 8.5, QFont::Normal, white(0.7), Qt::AlignRight);
        y_ = box.top() + 76;
    }

    void chain() {
        const MasterParams& m = in_.params;
        sectionHeading(y_ + 12, w_.chain);
        const auto off = [&](bool feminine) { return qs(feminine ? w_.bypassFeminine : w_.bypass); };
        const struct {
            const char* label;
            bool on;
            QString state;
        } lines[] = {
            {w_.equaliser, m.eqOn, m.eqOn ? qs(w_.active) : off(false)},
            {w_.compressor, m.compOn,
             m.compOn ? qs(formatOneDecimal(m.compRatio) + ":1 · ") + qs(w_.maxReduction) + ' ' +
                            qs(formatOneDecimal(in_.maxGR)) + " dB"
                      : off(false)},
            {w_.tonal, m.teqOn, m.teqOn ? qs(w_.active) : off(false)},
            {w_.lra, m.lraOn, m.lraOn ? qs(w_.lraTarget) + ' ' + qs(formatOneDecimal(m.lraTarget)) + " LU" : off(true)},
            {w_.midSide, m.msOn,
             m.msOn ? qs("Mid " + formatSignedOneDecimal(m.midGain) + " dB · Side " + formatSignedOneDecimal(m.sideGain) +
                         " dB")
                    : off(true)},
        };
        double baseline = y_ + 32;
        for (const auto& line : lines) {
            text(40, baseline, qs(line.label), 9.5, QFont::Normal, white(0.75));
            p_.setPen(Qt::NoPen);
            p_.setBrush(line.on ? accent : white(0.25));
            p_.drawEllipse(QPointF(171, baseline - 3.3), 2.4, 2.4);
            // Stops short of the QR caption, which shares the bottom of the page.
            text(180, baseline, line.state, 9.5, line.on ? QFont::Medium : QFont::Normal,
                 white(line.on ? 0.95 : 0.45), Qt::AlignLeft, 185);
            baseline += 14;
        }
        y_ = baseline;
    }

    // The first events of the source, each with its timecode, in two columns under the graph;
    // the text report lists them all.
    void events() {
        constexpr double lineHeight = 10, columnWidth = (marginRight - marginLeft) / 2;
        constexpr std::size_t shown = 10, perColumn = shown / 2;
        const auto& list = *in_.sourceEvents;
        const double titleBaseline = y_ + 14;
        text(marginLeft, titleBaseline, qs(w_.events) + " (" + QString::number(list.size()) + ")", 8.5, QFont::Bold,
             white(0.8));
        if (list.size() > shown)
            text(marginRight, titleBaseline, qs(w_.moreEvents).arg(list.size() - shown), 7, QFont::Normal, white(0.5),
                 Qt::AlignRight);
        const double first = titleBaseline + 13;
        if (list.empty()) text(marginLeft, first, qs(w_.noEvents), 7.5, QFont::Normal, white(0.6));
        for (std::size_t i = 0; i < list.size() && i < shown; ++i) {
            const LoudnessEvent& e = list[i];
            const double x = marginLeft + double(i / perColumn) * columnWidth;
            const double baseline = first + double(i % perColumn) * lineHeight;
            const bool clip = e.kind == EventKind::clipping;
            text(x, baseline, qs(timecode(e.startSeconds)), 7.5, QFont::Normal, white(0.85));
            text(x + 62, baseline, qs(eventKindText(e.kind, language_ == ReportLanguage::en)), 7.5, QFont::Normal,
                 clip ? failRed : white(0.75));
            const std::string value = formatSignedOneDecimal(e.valueDB) + ' ' + std::string(eventUnit(e.kind));
            text(x + columnWidth - 40, baseline, qs(value), 7.5, QFont::Normal, white(0.75), Qt::AlignRight);
            text(x + columnWidth - 34, baseline, qs(eventChannelName(e, in_.channelLabels)), 7.5, QFont::Normal,
                 white(0.6));
        }
        y_ = first + double(list.empty() ? 1 : std::min(list.size(), perColumn)) * lineHeight - 6;
    }

    void qrBlock() {
        const std::optional<std::string_view> url = officialReferenceURL(norm_.label);
        if (!url) return;
        const std::vector<std::vector<bool>> modules = qrModules(*url);
        if (modules.empty()) return;
        // The white square is the quiet zone that lets a phone find the code on a dark page.
        p_.fillRect(QRectF(509, fromBottom(32) - 68, 68, 68), Qt::white);
        const double originX = 515, originY = fromBottom(38) - 56;
        const double module = 56.0 / double(modules.size());
        // One path of whole runs: separate touching squares leave hairline seams in some viewers.
        QPainterPath dark;
        for (std::size_t row = 0; row < modules.size(); ++row) {
            for (std::size_t col = 0; col < modules.size();) {
                if (!modules[row][col]) {
                    ++col;
                    continue;
                }
                std::size_t end = col;
                while (end < modules.size() && modules[row][end]) ++end;
                dark.addRect(QRectF(originX + double(col) * module, originY + double(row) * module,
                                    double(end - col) * module, module));
                col = end;
            }
        }
        dark.setFillRule(Qt::WindingFill);
        p_.fillPath(dark, Qt::black);
        text(375, fromBottom(60), qs(w_.scanCaption), 7, QFont::Normal, white(0.45));
    }

    QPainter& p_;
    const ReportInputs& in_;
    const ReportLanguage language_;
    const Words& w_;
    const Preset& norm_;
    const QString unit_;
    // The target or the ceiling is not the norm's: the report names the norm only as its base.
    const bool custom_;

    // The norm's name, or the custom target's base where the norm's name would mislead.
    QString normName() const { return custom_ ? qs(w_.customBase).arg(qs(norm_.label)) : qs(norm_.label); }
    double y_ = 0;  // top-down position reached by the page flow
};

}  // namespace

std::string makePDFReport(const ReportInputs& inputs, ReportLanguage language) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    {
        QPdfWriter writer(&buffer);
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setPageMargins(QMarginsF(0, 0, 0, 0));
        writer.setResolution(72);  // one device unit per point
        writer.setCreator(QStringLiteral("Velmora"));
        writer.setTitle(language == ReportLanguage::en ? QStringLiteral("Velmora Mastering Report")
                                                       : QStringLiteral("Velmora — Rapport de mastering"));
        QPainter painter(&writer);
        painter.setRenderHint(QPainter::Antialiasing);
        PageDrawer(painter, inputs, language).draw();
    }
    return bytes.toStdString();
}

}  // namespace velmora
