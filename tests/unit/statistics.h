// Statistical tests of sampling: chi-square tests of drawn directions against a stated density, and
// integrals over the sphere.
//
// The numbers behind the samples come from a generator with a fixed seed, so a result never
// changes between runs; the significance of a test is to be divided by the number of tests that
// are made at the same time.
#ifndef RV_STATISTICS_H
#define RV_STATISTICS_H

#include <algorithm>
#include <math.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace statistics {

struct Direction {
    double x, y, z;
};
inline double dot(const Direction& a, const Direction& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// Uniform numbers in [0, 1) that fit into a float.
class Uniform {
public:
    explicit Uniform(unsigned seed) : generator(seed) {}
    float operator()() { return float(generator() >> 8) * 0x1p-24f; }

private:
    std::mt19937 generator;
};

// ---- Distributions ----

// Upper tail of the chi-square distribution: the probability of a statistic of at least that much
// (Press et al., Numerical Recipes, 3rd ed., 6.2: the incomplete gamma function by its series or
// its continued fraction).
inline double chiSquareTail(double statistic, double degrees_of_freedom)
{
    const double a = degrees_of_freedom / 2, x = statistic / 2;
    if (x <= 0)
        return 1;
    const double front = exp(-x + a * log(x) - lgamma(a));
    if (x < a + 1) {
        double term = 1 / a, sum = term;
        for (double n = a + 1; term > sum * 1e-15; ++n)
            sum += term *= x / n;
        return 1 - sum * front;
    }
    const double tiny = 1e-300;
    double b = x + 1 - a, c = 1 / tiny, d = 1 / b, h = d;
    for (int i = 1; i < 100000; ++i) {
        const double n = -i * (i - a);
        b += 2;
        d = n * d + b;
        d = 1 / (fabs(d) < tiny ? tiny : d);
        c = b + n / c;
        c = fabs(c) < tiny ? tiny : c;
        h *= d * c;
        if (fabs(d * c - 1) < 1e-15)
            break;
    }
    return front * h;
}

struct ChiSquare {
    double statistic = 0;
    int degrees_of_freedom = 0;
    double p = 1; // probability of a statistic of at least that much; 0 for impossible samples
};

// Pearson's test. Both histograms have the same total; cells that expect fewer than five are
// merged in order of expectation.
inline ChiSquare chiSquareTest(const std::vector<double>& observed,
                               const std::vector<double>& expected)
{
    std::vector<size_t> order(expected.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return expected[a] < expected[b]; });
    ChiSquare result;
    double merged_observed = 0, merged_expected = 0;
    int cells = 0;
    const auto add = [&](double o, double e) {
        result.statistic += (o - e) * (o - e) / e;
        ++cells;
    };
    for (const size_t i : order) {
        merged_observed += observed[i];
        merged_expected += expected[i];
        if (merged_expected < 5)
            continue;
        add(merged_observed, merged_expected);
        merged_observed = merged_expected = 0;
    }
    if (merged_observed > 0 || merged_expected > 0) // fewer than five in all
        add(merged_observed, std::max(merged_expected, 1e-3));
    result.degrees_of_freedom = cells - 1;
    if (result.degrees_of_freedom > 0)
        result.p = chiSquareTail(result.statistic, result.degrees_of_freedom);
    return result;
}

// ---- The sphere ----

// Cells of the sphere around an axis: rings of polar angles, cut into equal azimuths. A sharpness
// above 1 makes the rings near the axis narrower, for densities that are concentrated there.
struct SphereCells {
    Direction axis;
    int rings = 40, sectors = 60;
    double sharpness = 1;
    double max_angle = M_PI; // beyond it is one more cell

    SphereCells(const Direction& towards, double sharpness_ = 1, double max_angle_ = M_PI)
        : axis(towards), sharpness(sharpness_), max_angle(max_angle_)
    {
        const double l = sqrt(dot(axis, axis));
        axis = { axis.x / l, axis.y / l, axis.z / l };
        const Direction other = fabs(axis.x) < 0.6 ? Direction{ 1, 0, 0 } : Direction{ 0, 1, 0 };
        tangent = { other.y * axis.z - other.z * axis.y, other.z * axis.x - other.x * axis.z,
                    other.x * axis.y - other.y * axis.x };
        const double t = sqrt(dot(tangent, tangent));
        tangent = { tangent.x / t, tangent.y / t, tangent.z / t };
        bitangent = { axis.y * tangent.z - axis.z * tangent.y,
                      axis.z * tangent.x - axis.x * tangent.z,
                      axis.x * tangent.y - axis.y * tangent.x };
    }

    // Of the whole sphere; the last one is what lies beyond max_angle.
    size_t count() const { return size_t(rings * sectors) + 1; }

    // A position within ring and sector, both from 0 to 1, as a direction.
    double angleAt(double ring) const { return max_angle * pow(ring / rings, sharpness); }
    Direction directionAt(double theta, double phi) const
    {
        const double s = sin(theta), c = cos(theta), x = s * cos(phi), y = s * sin(phi);
        return { axis.x * c + tangent.x * x + bitangent.x * y,
                 axis.y * c + tangent.y * x + bitangent.y * y,
                 axis.z * c + tangent.z * x + bitangent.z * y };
    }

    size_t cellOf(const Direction& d) const
    {
        const double x = dot(d, tangent), y = dot(d, bitangent), z = dot(d, axis);
        const double theta = atan2(sqrt(x * x + y * y), z);
        const double ring = pow(theta / max_angle, 1 / sharpness) * rings;
        if (ring >= rings)
            return max_angle < M_PI ? count() - 1 : size_t(rings * sectors - 1);
        const double phi = atan2(y, x) + M_PI;
        const int sector = std::min(int(phi / (2 * M_PI) * sectors), sectors - 1);
        return size_t(int(ring) * sectors + sector);
    }

    // The integral of f(direction) over each cell, by the midpoint rule with `steps` steps each
    // way; the last cell stays 0.
    template <class F> std::vector<double> integrate(F f, int steps) const
    {
        std::vector<double> integrals(count());
        for (int ring = 0; ring < rings; ++ring)
            for (int i = 0; i < steps; ++i) {
                const double inner = angleAt(ring + double(i) / steps);
                const double outer = angleAt(ring + double(i + 1) / steps);
                const double band = cos(inner) - cos(outer), middle = (inner + outer) / 2;
                for (int k = 0; k < sectors * steps; ++k) {
                    const double width = 2 * M_PI / (sectors * steps);
                    const double value = f(directionAt(middle, (k + 0.5) * width - M_PI));
                    integrals[size_t(ring * sectors + k / steps)] += value * band * width;
                }
            }
        return integrals;
    }

    Direction tangent, bitangent;
};

template <class F> double integralOver(const SphereCells& cells, F f, int steps)
{
    double sum = 0;
    for (const double part : cells.integrate(f, steps))
        sum += part;
    return sum;
}

// ---- Tests of samplers ----

struct SamplerTest {
    ChiSquare chi_square;
    double density_integral = 0; // the share of samples that are directions
    double drawn_share = 0;      // the same, as it was drawn
    std::string histograms;      // cells that differ most, for the report of a failure

    std::string describe() const
    {
        std::ostringstream text;
        text << "chi-square " << chi_square.statistic << " of " << chi_square.degrees_of_freedom
             << " degrees of freedom, p = " << chi_square.p << ", integral " << density_integral
             << ", drawn " << drawn_share << "\n"
             << histograms;
        return text.str();
    }
};

inline std::string worstCells(const std::vector<double>& observed,
                              const std::vector<double>& expected)
{
    std::vector<size_t> order(expected.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    const auto excess = [&](size_t i) {
        return (observed[i] - expected[i]) * (observed[i] - expected[i]) /
               std::max(expected[i], 1.0);
    };
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return excess(a) > excess(b); });
    std::ostringstream text;
    for (size_t i = 0; i < std::min<size_t>(order.size(), 12); ++i)
        text << "  cell " << order[i] << ": " << observed[order[i]] << " observed, "
             << expected[order[i]] << " expected\n";
    return text.str();
}

// Tests draw(u, v, &direction), which returns false when it drew no direction, against the density
// of a direction by solid angle. Samples without a direction, and beyond the cells, are one more
// cell, which expects what the density leaves.
template <class Draw, class Density>
SamplerTest testSampler(const SphereCells& cells, int samples, unsigned seed, Draw draw,
                        Density density, int steps = 8)
{
    SamplerTest result;
    std::vector<double> expected = cells.integrate(density, steps);
    for (double& e : expected) {
        result.density_integral += e;
        e *= samples;
    }
    expected.back() = std::max(0.0, (1 - result.density_integral) * samples);
    std::vector<double> observed(cells.count());
    Uniform uniform(seed);
    for (int i = 0; i < samples; ++i) {
        const float u = uniform(), v = uniform();
        Direction d;
        ++observed[draw(u, v, &d) ? cells.cellOf(d) : cells.count() - 1];
    }
    result.drawn_share = 1 - observed.back() / samples;
    result.chi_square = chiSquareTest(observed, expected);
    result.histograms = worstCells(observed, expected);
    return result;
}

// ---- Estimates ----

struct Estimate {
    double mean, standard_error;
};

template <class Sample> Estimate estimate(int samples, unsigned seed, Sample sample)
{
    Uniform uniform(seed);
    double sum = 0, squares = 0;
    for (int i = 0; i < samples; ++i) {
        const float u = uniform(), v = uniform();
        const double x = sample(u, v);
        sum += x;
        squares += x * x;
    }
    const double mean = sum / samples;
    return { mean, sqrt(std::max(0.0, squares / samples - mean * mean) / samples) };
}

} // namespace statistics

#endif
