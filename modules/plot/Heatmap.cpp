#include "modules/plot/Heatmap.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double MOST_STEPS = 1e15;

}  // namespace

bool Heatmap::Add(const double* values, std::size_t bins, double time) {
    if (spectra == 0) {
        allBins = bins;
        binsPerRow = std::max<std::size_t>(1, (bins + mostRows - 1) / mostRows);
        rows = (bins + binsPerRow - 1) / binsPerRow;
        begin = time;
    }
    if (bins != allBins) return false;
    FindStep(time);
    while (static_cast<std::size_t>(index / perColumn) >= mostColumns) MergePairs();
    const auto column = static_cast<std::size_t>(index / perColumn);
    if (cells.size() < (column + 1) * rows) cells.resize((column + 1) * rows, NOTHING);
    double* cell = cells.data() + column * rows;
    for (std::size_t k = 0; k < bins; ++k) {
        const bool finite = std::isfinite(values[k]);
        notFinite += finite ? 0 : 1;
        if (!finite) continue;
        greatest = std::max(greatest, values[k]);
        cell[k / binsPerRow] = std::max(cell[k / binsPerRow], values[k]);
    }
    ++spectra;
    return true;
}

void Heatmap::FindStep(double time) {
    if (spectra == 0) return;
    if (spectra == 1 && time > begin) step = time - begin;
    const double steps = std::min(std::round((time - begin) / step), MOST_STEPS);
    index = std::max(index + 1, static_cast<std::int64_t>(steps));
}

void Heatmap::MergePairs() {
    const std::size_t columns = Columns();
    for (std::size_t column = 0; column < columns; ++column)
        for (std::size_t row = 0; row < rows; ++row) {
            double& merged = cells[column / 2 * rows + row];
            merged = column % 2 == 0 ? Cell(column, row) : std::max(merged, Cell(column, row));
        }
    cells.resize((columns + 1) / 2 * rows);
    perColumn *= 2;
}
