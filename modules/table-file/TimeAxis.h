#pragma once

#include <cstdint>
#include <span>

namespace tc {

// Whether the times of a table follow each other evenly. Times are in seconds.
class TimeAxis {
 public:
    // GAP: rows are missing before it; a whole number of them, or many.
    enum class Step { EVEN, BACK, UNEVEN, GAP };

    // By the times of the first rows, of which there are at least two, each of which may be wrong by
    // `resolution`: the samplerate that fits them with the fewest digits, of it or of its inverse. False when
    // they do not rise.
    bool Learn(std::span<const double> times, double resolution);
    // With a samplerate that is known.
    void Learn(std::span<const double> times, double resolution, double known);

    double Samplerate() const { return rate; }
    // What would follow.
    double Expected() const { return first + static_cast<double>(position) / rate; }

    // The next time begins anew.
    void Restart() { position = 0; }
    // Looks at the next time: it is even when it is no more than half a period away from where it should be,
    // and as far as the first rows were in doubt.
    Step Look(double time) const {
        if (position == 0) return Step::EVEN;
        const double apart = time - Expected();
        const double doubt = 0.5 / rate + Doubt();
        if (apart <= doubt && apart >= -doubt) return Step::EVEN;
        return time <= last ? Step::BACK : IsGap(apart) ? Step::GAP : Step::UNEVEN;
    }
    // The same; an even one counts.
    Step Check(double time) {
        const Step step = Look(time);
        if (step != Step::EVEN) return step;
        if (position == 0) first = time;
        last = time;
        ++position;
        return step;
    }
    // The rows that are missing before a time of a GAP, and how long that is.
    std::int64_t Missing(double time) const;
    double MissingSeconds(double time) const;
    double Last() const { return last; }

 private:
    double Doubt() const { return worst * (1.0 + static_cast<double>(position) / learned); }
    bool IsGap(double apart) const;

    double rate = 1.0;
    double worst = 0.0;    // how far the first rows were from even, within their resolution
    double learned = 1.0;  // number of those
    double first = 0.0;
    double last = 0.0;
    std::int64_t position = 0;
};

}  // namespace tc
