// SPDX-License-Identifier: MIT
//
// Measures a figure: subject and control alternate in one run, so that other load on the machine
// affects both, and their medians are compared.
#ifndef KESTROVA_BENCH_FIGURE_H
#define KESTROVA_BENCH_FIGURE_H

#include <cstdio>
#include <string>
#include <vector>

namespace bench {

/// Returns nanoseconds of the monotonic clock.
double now();

/// Returns the median; reorders the times, of which there must be at least one.
double median(std::vector<double>& times);

/// Medians in nanoseconds per call.
struct Times {
    double mSubject;
    double mControl;
};

/// Returns the nanoseconds of a call, as the mean of `calls`.
template <class Call>
double timeOf(int calls, Call& call) {
    const double begin = now();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    return (now() - begin) / calls;
}

/// Measures both in `rounds` rounds of `calls` calls each. They swap places every round, because
/// the second one is affected by what the first has left in caches and disk buffers. The first
/// round, with cold caches, is not counted.
template <class Subject, class Control>
Times measure(int rounds, int calls, Subject subject, Control control) {
    std::vector<double> subjects;
    std::vector<double> controls;
    for (int round = 0; round <= rounds; ++round) {
        const bool subjectFirst = round % 2 == 0;
        double subjectTime = subjectFirst ? timeOf(calls, subject) : 0;
        const double controlTime = timeOf(calls, control);
        if (!subjectFirst) {
            subjectTime = timeOf(calls, subject);
        }
        if (round > 0) {
            subjects.push_back(subjectTime);
            controls.push_back(controlTime);
        }
    }
    return {median(subjects), median(controls)};
}

/// Output of the figures: the standard output that the program was started with. Standard output
/// itself becomes /dev/null, because the library logs to it.
class Report {
public:
    /// Exits the program if the outputs cannot be opened.
    Report();
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    /// Writes a row "name<TAB>ratio", and a comment with both times.
    void figure(const std::string& name, double ratio, const Times& times);
    /// Writes only the row.
    void ratio(const std::string& name, double ratio);
    void comment(const std::string& text);

private:
    std::FILE* mpRows;
};

/// Exits the program: a failed measurement must not look like a figure.
[[noreturn]] void fail(const char* what);

}  // namespace bench

#endif
