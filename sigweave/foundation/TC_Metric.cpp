#include "sigweave/foundation/TC_Metric.h"

#include <cstdlib>
#include <functional>

#include "sigweave/foundation/NumberFormat.h"

namespace {

struct Factors {
    double x;
    double y;
};

// Logical units per device unit, measured on a long way.
Factors MeasureFactors(int mode, CDC& context) {
    constexpr int DISTANCE = 30000;
    CPoint point{DISTANCE, DISTANCE};
    const int before = context.SetMapMode(mode);
    context.LPtoDP(point);
    context.SetMapMode(before);
    return {static_cast<double>(DISTANCE) / point.x, static_cast<double>(DISTANCE) / point.y};
}

bool HasFixedFactors(int mode) {
    return mode == 10 || mode == 11;
}

Factors ComputeFactors(int mode, CDC* context) {
    if (mode == 10) return {3.0, 3.0};
    if (mode == 11) return {0.1, 0.1};
    return MeasureFactors(mode, *context);
}

template <typename Operation>
void Convert(int& x, int& y, const TC_Metric& metric, Operation operation) {
    x = Round(operation(x, metric.GetXFactor()));
    y = Round(operation(y, metric.GetYFactor()));
}

template <typename Operation>
void Convert(CPoint* points, int count, const TC_Metric& metric, Operation operation) {
    for (int i = 0; i < count; ++i) Convert(points[i].x, points[i].y, metric, operation);
}

template <typename Operation>
void Convert(CRect* rect, const TC_Metric& metric, Operation operation) {
    Convert(rect->left, rect->top, metric, operation);
    Convert(rect->right, rect->bottom, metric, operation);
}

}  // namespace

TC_Metric::TC_Metric(int mapMode) : mode(mapMode) {
    ComputeFrom(TCGetMainWindow());
}

void TC_Metric::CalcMetric(int mapMode, CDC* context) {
    if (context == nullptr && !HasFixedFactors(std::abs(mapMode))) return;
    mode = mapMode;
    Compute(context);
}

void TC_Metric::CalcMetric(int mapMode, CWnd* window) {
    if (window == nullptr) window = TCGetMainWindow();
    if (window != nullptr) CalcMetric(mapMode, window->GetDC());
}

void TC_Metric::SetFactor(const double& x, const double& y) {
    xFactor = x;
    yFactor = y;
}

double TC_Metric::GetXFactor() const {
    if (xFactor == 0) ComputeFrom(TCGetMainWindow());
    return xFactor;
}

double TC_Metric::GetYFactor() const {
    if (yFactor == 0) ComputeFrom(TCGetMainWindow());
    return yFactor;
}

void TC_Metric::DPtoLP(CPoint* points, int count) const {
    Convert(points, count, *this, std::multiplies<>());
}

void TC_Metric::DPtoLP(CRect* rect) const {
    Convert(rect, *this, std::multiplies<>());
}

void TC_Metric::DPtoLP(CSize* size) const {
    Convert(size->cx, size->cy, *this, std::multiplies<>());
}

void TC_Metric::LPtoDP(CPoint* points, int count) const {
    Convert(points, count, *this, std::divides<>());
}

void TC_Metric::LPtoDP(CRect* rect) const {
    Convert(rect, *this, std::divides<>());
}

void TC_Metric::LPtoDP(CSize* size) const {
    Convert(size->cx, size->cy, *this, std::divides<>());
}

void TC_Metric::Compute(CDC* context) const {
    const Factors factors = ComputeFactors(std::abs(mode), context);
    xFactor = factors.x;
    yFactor = mode < 0 ? -factors.y : factors.y;
}

void TC_Metric::ComputeFrom(CWnd* window) const {
    if (window != nullptr) Compute(window->GetDC());
}
