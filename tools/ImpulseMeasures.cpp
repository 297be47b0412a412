#include "tools/ImpulseMeasures.h"

#include "effects/filter/BiquadStage.h"
#include "tools/RealFft.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace ImpulseMeasures {

namespace {

std::vector<float> bandLimited(const std::vector<float>& signal, float rate, double centreHz) {
    std::vector<float> out = signal;
    if (centreHz <= 0.0) return out;
    for (int pass = 0; pass < 2; ++pass) {
        BiquadStage stage;
        stage.set(BiquadStage::BandPass, static_cast<float>(centreHz), 0.7f, rate, 0, true);
        stage.process(out.data(), static_cast<int>(out.size()));
    }
    return out;
}

} // namespace

double t30(const std::vector<float>& left, const std::vector<float>& right, float rate, double centreHz) {
    const std::vector<float> l = bandLimited(left, rate, centreHz);
    const std::vector<float> r = bandLimited(right, rate, centreHz);
    const std::size_t n = std::min(l.size(), r.size());
    std::vector<double> decay(n + 1, 0.0);
    for (std::size_t i = n; i-- > 0;)
        decay[i] = decay[i + 1] + static_cast<double>(l[i]) * l[i] + static_cast<double>(r[i]) * r[i];
    if (decay[0] <= 0.0) return 0.0;
    // Least-squares line through the decay curve in dB between -5 and -35 dB.
    double sx = 0.0, sy = 0.0, sxx = 0.0, sxy = 0.0;
    long points = 0;
    bool reached = false;
    for (std::size_t i = 0; i < n; ++i) {
        const double db = 10.0 * std::log10(decay[i] / decay[0] + 1e-300);
        if (db > -5.0) continue;
        if (db < -35.0) {
            reached = true;
            break;
        }
        const double t = static_cast<double>(i) / rate;
        sx += t;
        sy += db;
        sxx += t * t;
        sxy += t * db;
        ++points;
    }
    if (!reached || points < 2) return 0.0;
    const double slope = (points * sxy - sx * sy) / (points * sxx - sx * sx);
    return slope < 0.0 ? -60.0 / slope : 0.0;
}

double echoDensityTime(const std::vector<float>& left, float rate, double level) {
    const int half = static_cast<int>(0.01 * rate);
    const int n = static_cast<int>(left.size());
    const double gaussianShare = std::erfc(1.0 / std::sqrt(2.0));
    for (int centre = half; centre + half < n; ++centre) {
        double energy = 0.0;
        for (int i = centre - half; i <= centre + half; ++i)
            energy +=
                static_cast<double>(left[static_cast<std::size_t>(i)]) * left[static_cast<std::size_t>(i)];
        const int width = 2 * half + 1;
        const double deviation = std::sqrt(energy / width);
        if (deviation <= 0.0) continue;
        int above = 0;
        for (int i = centre - half; i <= centre + half; ++i)
            above += std::fabs(left[static_cast<std::size_t>(i)]) > deviation ? 1 : 0;
        if (static_cast<double>(above) / width / gaussianShare >= level)
            return static_cast<double>(centre) / rate;
    }
    return -1.0;
}

double correlation(const std::vector<float>& left, const std::vector<float>& right, float rate, double from,
                   double to) {
    const auto begin = static_cast<std::size_t>(from * rate);
    const auto end = std::min({static_cast<std::size_t>(to * rate), left.size(), right.size()});
    double lr = 0.0, ll = 0.0, rr = 0.0, sl = 0.0, sr = 0.0;
    const double count = static_cast<double>(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
        sl += left[i];
        sr += right[i];
    }
    const double ml = sl / count, mr = sr / count;
    for (std::size_t i = begin; i < end; ++i) {
        const double a = left[i] - ml, b = right[i] - mr;
        lr += a * b;
        ll += a * a;
        rr += b * b;
    }
    return ll > 0.0 && rr > 0.0 ? lr / std::sqrt(ll * rr) : 0.0;
}

std::pair<double, double> lateTail(const std::vector<float>& left, const std::vector<float>& right,
                                   float rate) {
    const std::size_t n = std::min(left.size(), right.size());
    std::vector<double> decay(n + 1, 0.0);
    for (std::size_t i = n; i-- > 0;)
        decay[i] =
            decay[i + 1] + static_cast<double>(left[i]) * left[i] + static_cast<double>(right[i]) * right[i];
    std::size_t end = n;
    for (std::size_t i = 0; i < n; ++i) {
        if (decay[i] < decay[0] * 1e-4) {
            end = i;
            break;
        }
    }
    const double from = 0.1;
    return {from, std::max(from + 0.1, static_cast<double>(end) / rate)};
}

double worstPeakDb(const std::vector<float>& left, const std::vector<float>& right, float rate, double from,
                   double to) {
    const auto begin = static_cast<std::size_t>(from * rate);
    const std::size_t end = std::min({left.size(), right.size(), static_cast<std::size_t>(to * rate)});
    // Frames short enough for at least sixteen of them, so that the average is steady, but no shorter than
    // 512 points.
    int size = 4096;
    while (size > 512 && end > begin && (end - begin) / static_cast<std::size_t>(size / 2) < 16)
        size /= 2;
    RealFft fft(size);
    std::vector<double> power(static_cast<std::size_t>(fft.bins()), 0.0);
    std::vector<float> frame(size), magnitude(static_cast<std::size_t>(fft.bins()));
    int frames = 0;
    for (std::size_t start = begin; start + size <= end; start += size / 2) {
        for (const std::vector<float>* channel : {&left, &right}) {
            for (int i = 0; i < size; ++i) {
                const double hann = 0.5 - 0.5 * std::cos(2.0 * 3.141592653589793 * i / size);
                frame[static_cast<std::size_t>(i)] =
                    static_cast<float>((*channel)[start + static_cast<std::size_t>(i)] * hann);
            }
            fft.magnitudes(frame.data(), magnitude.data());
            // Each frame counts alike, whatever its level, so the few loud frames at the start of the decay
            // do not stand for the whole tail.
            double energy = 0.0;
            for (float m : magnitude)
                energy += static_cast<double>(m) * m;
            if (energy <= 0.0) continue;
            for (std::size_t k = 0; k < power.size(); ++k)
                power[k] += static_cast<double>(magnitude[k]) * magnitude[k] / energy;
        }
        ++frames;
    }
    if (frames == 0) return 0.0;
    const double binHz = static_cast<double>(rate) / size;
    double worst = -1e9;
    const auto lastBin = static_cast<int>(power.size()) - 1;
    for (int k = static_cast<int>(100.0 / binHz); k <= static_cast<int>(10000.0 / binHz); ++k) {
        const double f = k * binHz;
        const int lo = std::max(1, static_cast<int>(f * std::pow(2.0, -1.0 / 6.0) / binHz));
        const int hi = std::min(lastBin, static_cast<int>(f * std::pow(2.0, 1.0 / 6.0) / binHz));
        double sum = 0.0;
        int count = 0;
        for (int j = lo; j <= hi; ++j) {
            // The peak's own main lobe is not its neighbourhood.
            if (std::abs(j - k) <= 2) continue;
            sum += power[static_cast<std::size_t>(j)];
            ++count;
        }
        if (count == 0 || sum <= 0.0) continue;
        worst = std::max(worst, 10.0 * std::log10(power[static_cast<std::size_t>(k)] / (sum / count)));
    }
    return worst;
}

} // namespace ImpulseMeasures
