#pragma once

#include <utility>
#include <vector>

// Figures of a stereo reverb impulse response, as room acoustics measures them. Any thread; each call works
// on its own copies.
namespace ImpulseMeasures {

// T30 in seconds, extrapolated to 60 dB: the slope of the backward-integrated energy of left plus right
// between -5 and -35 dB. With centreHz above 0 the response is first band-limited around that frequency (two
// octaves wide). 0 when the decay never reaches -35 dB.
double t30(const std::vector<float>& left, const std::vector<float>& right, float rate,
           double centreHz = 0.0);

// Seconds after the first sample until the normalised echo density (20 ms window, share of samples above the
// window's deviation, over the Gaussian share) first reaches `level`; -1 when it never does in the response.
double echoDensityTime(const std::vector<float>& left, float rate, double level = 0.9);

// Pearson correlation of left and right between two times in seconds.
double correlation(const std::vector<float>& left, const std::vector<float>& right, float rate, double from,
                   double to);

// Highest level in dB by which one band of a Welch spectrum (up to 4096 points, each frame weighted alike) of
// the response between two times in seconds stands above the mean of its third-octave neighbourhood, between
// 100 Hz and 10 kHz.
double worstPeakDb(const std::vector<float>& left, const std::vector<float>& right, float rate, double from,
                   double to);

// The late tail in seconds: from 100 ms until the backward-integrated energy of left plus right is 40 dB
// down, at least 100 ms long.
std::pair<double, double> lateTail(const std::vector<float>& left, const std::vector<float>& right,
                                   float rate);

} // namespace ImpulseMeasures
