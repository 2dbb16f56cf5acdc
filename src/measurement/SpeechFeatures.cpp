#include "measurement/SpeechFeatures.h"

#include <algorithm>
#include <cmath>
#include <numbers>

extern "C" {
#include <libavutil/tx.h>
}

namespace velmora {

namespace {
constexpr double pi = std::numbers::pi;
constexpr float tinyPower = 1e-10f;  // -100 dB: digital silence still has a logarithm
// Pitch between 80 and 500 Hz: lags of 32 to 200 samples at 16 kHz.
constexpr std::size_t shortestLag = 32, longestLag = 200;
constexpr float voicedAbove = 0.45f;
// Bins of the 512-point transform at 16 kHz (31.25 Hz apart): the speech band, 300 to 3400 Hz,
// and where a voice's harmonics lie, 60 to 4000 Hz.
constexpr std::size_t speechFirstBin = 10, speechLastBin = 108, voiceFirstBin = 2, voiceLastBin = 128;
static_assert(SpeechFeatures::fftSize == 512 && SpeechFeatures::sampleRate == 16000.0, "bins above are for 31.25 Hz");

double hzToMel(double hz) { return 2595.0 * std::log10(1.0 + hz / 700.0); }
double melToHz(double mel) { return 700.0 * (std::pow(10.0, mel / 2595.0) - 1.0); }
float toDB(double power) { return float(10.0 * std::log10(std::max(power, double(tinyPower)))); }
}  // namespace

SpeechFeatures::SpeechFeatures() {
    const float scale = 1.0f;
    if (av_tx_init(&forward_, &forwardFn_, AV_TX_FLOAT_RDFT, 0, int(fftSize), &scale, 0) < 0)
        forward_ = nullptr;
    if (av_tx_init(&inverse_, &inverseFn_, AV_TX_FLOAT_RDFT, 1, int(fftSize), &scale, 0) < 0)
        inverse_ = nullptr;
    hann_.resize(fftSize);
    for (std::size_t n = 0; n < fftSize; ++n)
        hann_[n] = float(0.5 - 0.5 * std::cos(2.0 * pi * double(n) / double(fftSize)));
    power_.assign(fftSize / 2 + 1, 0.0f);

    // Triangular bands evenly spaced in mel from 100 Hz to 7 kHz.
    const double binHz = sampleRate / double(fftSize);
    const double lo = hzToMel(100.0), hi = hzToMel(7000.0);
    std::array<double, melBands + 2> edges{};
    for (std::size_t m = 0; m < edges.size(); ++m) edges[m] = melToHz(lo + (hi - lo) * double(m) / double(melBands + 1));
    for (std::size_t m = 0; m < melBands; ++m) {
        const double left = edges[m], centre = edges[m + 1], right = edges[m + 2];
        const auto start = std::size_t(std::ceil(left / binHz)), end = std::size_t(std::floor(right / binHz)) + 1;
        melStart_.push_back(start);
        melEnd_.push_back(std::max(end, start + 1));
        for (std::size_t k = start; k < melEnd_.back(); ++k) {
            const double f = double(k) * binHz;
            const double w = f <= centre ? (f - left) / (centre - left) : (right - f) / (right - centre);
            melWeights_.push_back(float(std::clamp(w, 0.0, 1.0)));
        }
    }
    constexpr std::size_t span = 2 * contextHalf + 1;
    for (std::size_t bin = 1; bin <= modulationBins; ++bin)
        for (std::size_t j = 0; j < span; ++j) {
            const double phase = 2.0 * pi * double(bin * j) / double(span);
            modulationCos_[j * modulationBins + bin - 1] = float(std::cos(phase));
            modulationSin_[j * modulationBins + bin - 1] = float(std::sin(phase));
        }
    dct_.resize(cepstra * melBands);
    for (std::size_t n = 0; n < cepstra; ++n)
        for (std::size_t m = 0; m < melBands; ++m)
            dct_[n * melBands + m] = float(std::cos(pi * double(n + 1) * (double(m) + 0.5) / double(melBands)) /
                                           double(melBands));
}

SpeechFeatures::~SpeechFeatures() {
    av_tx_uninit(&forward_);
    av_tx_uninit(&inverse_);
}

void SpeechFeatures::reset() {
    window_.fill(0.0f);
    filled_ = 0;
    computed_ = 0;
    previousMel_.fill(0.0f);
}

void SpeechFeatures::completeFrame() {
    Frame& f = ring_[computed_ % ringSize];
    for (std::size_t n = 0; n < fftSize; ++n) frame_[n] = window_[n] * hann_[n];
    std::copy(window_.end() - overlap, window_.end(), window_.begin());
    filled_ = 0;
    if (!forward_ || !inverse_) {
        f = Frame{};
        f.speechDB = f.totalDB = toDB(0.0);
        f.speechPower = tinyPower;
        ++computed_;
        return;
    }
    forwardFn_(forward_, spectrum_.data(), frame_.data(), sizeof(float));

    const double binHz = sampleRate / double(fftSize);
    for (std::size_t k = 0; k <= fftSize / 2; ++k) {
        const float re = spectrum_[2 * k], im = spectrum_[2 * k + 1];
        power_[k] = re * re + im * im;
    }
    double speech = 0.0, total = 0.0, weightedBins = 0.0;
    for (std::size_t k = 0; k <= fftSize / 2; ++k) {
        total += power_[k];
        weightedBins += double(power_[k]) * double(k);
    }
    for (std::size_t k = speechFirstBin; k <= speechLastBin; ++k) speech += power_[k];
    const double weightedHz = weightedBins * binHz;
    // Hann-windowed power, brought back to the mean square of the frame.
    const double toMeanSquare = 2.0 / (double(fftSize) * double(fftSize) * 0.375);
    f.speechPower = std::max(speech * toMeanSquare, double(tinyPower));
    f.speechDB = toDB(f.speechPower);
    f.totalDB = toDB(total * toMeanSquare);
    f.centroid = total > 0 ? float(weightedHz / total / (sampleRate / 2)) : 0.0f;

    std::array<float, melBands> mel{};
    const float* w = melWeights_.data();
    double flux = 0.0;
    for (std::size_t m = 0; m < melBands; ++m) {
        double e = 0.0;
        for (std::size_t k = melStart_[m]; k < melEnd_[m]; ++k) e += double(*w++) * power_[k];
        mel[m] = std::log(float(e * toMeanSquare) + tinyPower);
        const float d = mel[m] - previousMel_[m];
        flux += computed_ > 0 ? double(d) * d : 0.0;
    }
    previousMel_ = mel;
    f.flux = float(std::sqrt(flux / double(melBands)));
    for (std::size_t n = 0; n < cepstra; ++n) {
        float c = 0.0f;
        for (std::size_t m = 0; m < melBands; ++m) c += dct_[n * melBands + m] * mel[m];
        f.cepstrum[n] = c;
    }

    // Voicing: the normalised autocorrelation peak over the pitch lags, from the power below
    // 4 kHz (where the harmonics of a voice lie) with the rumble under 60 Hz taken out.
    std::fill(spectrum_.begin(), spectrum_.end(), 0.0f);
    for (std::size_t k = voiceFirstBin; k <= voiceLastBin; ++k) spectrum_[2 * k] = power_[k];
    inverseFn_(inverse_, autocorrelation_.data(), spectrum_.data(), sizeof(AVComplexFloat));
    const float r0 = autocorrelation_[0];
    float best = 0.0f;
    std::size_t bestLag = 0;
    if (r0 > 1e-12f) {
        for (std::size_t lag = shortestLag; lag <= longestLag; ++lag)
            if (autocorrelation_[lag] > best) best = autocorrelation_[lag], bestLag = lag;
        best /= r0;
    }
    f.voicing = std::clamp(best, 0.0f, 1.0f);
    f.log2Pitch = bestLag > 0 ? float(std::log2(sampleRate / double(bestLag))) : 0.0f;
    ++computed_;
}

bool SpeechFeatures::summarise(std::size_t t) {
    const std::size_t first = t >= contextHalf ? t - contextHalf : 0;
    const std::size_t last = std::min(t + contextHalf, computed_ - 1);
    const double n = double(last - first + 1);

    std::array<double, cepstra> mean{}, square{};
    double speechMean = 0, speechSquare = 0, linear = 0, loudest = -1000.0;
    double fluxMean = 0, fluxSquare = 0, voicingMean = 0, voicingSquare = 0, voiced = 0;
    double centroidMean = 0, centroidSquare = 0, bandShare = 0, pitchMove = 0, pitchPairs = 0;
    for (std::size_t k = first; k <= last; ++k) {
        const Frame& f = ring_[k % ringSize];
        for (std::size_t c = 0; c < cepstra; ++c) mean[c] += f.cepstrum[c], square[c] += double(f.cepstrum[c]) * f.cepstrum[c];
        speechMean += f.speechDB;
        speechSquare += double(f.speechDB) * f.speechDB;
        linear += f.speechPower;
        loudest = std::max(loudest, double(f.speechDB));
        fluxMean += f.flux;
        fluxSquare += double(f.flux) * f.flux;
        voicingMean += f.voicing;
        voicingSquare += double(f.voicing) * f.voicing;
        centroidMean += f.centroid;
        centroidSquare += double(f.centroid) * f.centroid;
        bandShare += f.speechDB - f.totalDB;
        if (f.voicing > voicedAbove) {
            voiced += 1;
            if (k > first) {
                const Frame& p = ring_[(k - 1) % ringSize];
                if (p.voicing > voicedAbove) {
                    pitchMove += std::min(1.0, double(std::fabs(f.log2Pitch - p.log2Pitch)));
                    pitchPairs += 1;
                }
            }
        }
    }
    const auto deviation = [n](double sum, double sumSquares) {
        const double m = sum / n;
        return std::sqrt(std::max(0.0, sumSquares / n - m * m));
    };
    std::size_t i = 0;
    for (std::size_t c = 0; c < cepstra; ++c) out_[i++] = float(mean[c] / n);
    for (std::size_t c = 0; c < cepstra; ++c) out_[i++] = float(deviation(mean[c], square[c]));
    out_[i++] = float(deviation(speechMean, speechSquare));

    // Syllabic modulation: the share of the speech band's level envelope between 3 and 8 Hz
    // among all its modulation from 1 to 16 Hz (frames at 33.3 Hz, one-second window).
    const double average = speechMean / n;
    double syllabic = 0.0, all = 1e-9;
    constexpr std::size_t span = 2 * contextHalf + 1;
    std::array<float, span> envelope{};  // frame t − contextHalf + j; 0 outside the programme
    for (std::size_t j = 0; j < span; ++j) {
        const std::size_t k = t + j;  // offset by contextHalf so it stays unsigned
        if (k >= contextHalf + first && k <= contextHalf + last)
            envelope[j] = float(ring_[(k - contextHalf) % ringSize].speechDB - average);
    }
    // Every bin at once, frame by frame: the bins are the vector lanes.
    std::array<float, modulationBins> re{}, im{};
    for (std::size_t j = 0; j < span; ++j) {
        const float* cosine = modulationCos_.data() + j * modulationBins;
        const float* sine = modulationSin_.data() + j * modulationBins;
        for (std::size_t b = 0; b < modulationBins; ++b) {
            re[b] += envelope[j] * cosine[b];
            im[b] -= envelope[j] * sine[b];
        }
    }
    for (std::size_t bin = 1; bin <= modulationBins; ++bin) {
        const double e = double(re[bin - 1]) * re[bin - 1] + double(im[bin - 1]) * im[bin - 1];
        all += e;
        if (bin >= 3 && bin <= 8) syllabic += e;
    }
    out_[i++] = float(syllabic / all);

    // Speech leaves quiet gaps between syllables and words; music and noise rarely do.
    const double averageDB = 10.0 * std::log10(std::max(linear / n, 1e-12));
    double quiet = 0.0;
    for (std::size_t k = first; k <= last; ++k) quiet += ring_[k % ringSize].speechDB < averageDB - 6.0 ? 1.0 : 0.0;
    out_[i++] = float(quiet / n);
    out_[i++] = float(fluxMean / n);
    out_[i++] = float(deviation(fluxMean, fluxSquare));
    out_[i++] = float(voicingMean / n);
    out_[i++] = float(deviation(voicingMean, voicingSquare));
    out_[i++] = float(voiced / n);
    out_[i++] = float(pitchPairs > 0 ? pitchMove / pitchPairs : 0.0);
    out_[i++] = float(centroidMean / n);
    out_[i++] = float(deviation(centroidMean, centroidSquare));
    out_[i++] = float(bandShare / n);
    const Frame& now = ring_[t % ringSize];
    out_[i++] = float(std::max(-60.0, double(now.speechDB) - loudest));
    out_[i++] = now.voicing;
    out_[i++] = float(std::max(-60.0, double(now.speechDB) - averageDB));
    return loudest >= silenceDB;
}

}  // namespace velmora
