#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

// Spectra over time in bounded memory: the greatest value of each of a limited number of cells. When more
// time has come than there are columns, neighbours merge in pairs, so that a single line stays visible
// however long the signal gets. A spectrum's bins share the rows as evenly as whole numbers do.
class Heatmap {
 public:
    static constexpr double NOTHING = -std::numeric_limits<double>::infinity();

    // An even number of columns.
    Heatmap(std::size_t columnLimit, std::size_t rowLimit) : mostColumns(columnLimit), mostRows(rowLimit) {}

    // A spectrum with its time in milliseconds. Where times do not grow, spectra are as far from each other
    // as the first two, or a second. False for one with another number of bins than the first one.
    bool Add(const double* values, std::size_t bins, double time);

    // Values that are not finite are counted and leave a gap.
    std::int64_t NotFinite() const { return notFinite; }
    bool IsEmpty() const { return greatest == NOTHING; }
    double Greatest() const { return greatest; }
    std::size_t Bins() const { return allBins; }
    std::size_t BinsPerRow() const { return binsPerRow; }
    std::size_t Rows() const { return rows; }
    std::size_t Columns() const { return rows > 0 ? cells.size() / rows : 0; }
    double SecondsPerColumn() const { return step * static_cast<double>(perColumn) / 1000.0; }
    // NOTHING where nothing fell into it.
    double Cell(std::size_t column, std::size_t row) const { return cells[column * rows + row]; }

 private:
    void FindStep(double time);
    void MergePairs();

    std::size_t mostColumns;
    std::size_t mostRows;
    std::size_t allBins = 0;
    std::size_t binsPerRow = 1;
    std::size_t rows = 0;
    std::vector<double> cells;  // column by column
    std::int64_t perColumn = 1;
    double begin = 0.0;
    double step = 1000.0;
    std::int64_t spectra = 0;
    std::int64_t index = 0;  // of the last spectrum, in steps
    std::int64_t notFinite = 0;
    double greatest = NOTHING;
};
