// SPDX-License-Identifier: MIT
//
// How every figure is measured: subject and control take turns in one run, so that whatever else
// the machine does meanwhile falls on both, and the medians are compared.
#ifndef KESTROVA_BENCH_FIGURE_H
#define KESTROVA_BENCH_FIGURE_H

#include <cstdio>
#include <string>
#include <vector>

namespace bench {

/// Nanoseconds of a clock that only goes forward.
double now();

/// Middle value; the times are reordered. There has to be at least one.
double median(std::vector<double>& times);

/// Medians in nanoseconds a call.
struct Times {
    double mSubject;
    double mControl;
};

/// Nanoseconds that a call takes, as the mean of `calls`.
template <class Call>
double timeOf(int calls, Call& call) {
    const double begin = now();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    return (now() - begin) / calls;
}

/// Times both in `rounds` rounds of `calls` calls each. Whoever goes second in a round finds what
/// the first left behind (caches, a disk's buffers), so they swap places every round. The first
/// round, which meets everything cold, is not counted.
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

/// Where the figures go: the standard output that the program was started with. Standard output
/// itself leads to /dev/null from then on, because the library logs there.
class Report {
public:
    /// Ends the program when the outputs cannot be had.
    Report();
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    /// A row "name<TAB>ratio", and a comment that tells the two times.
    void figure(const std::string& name, double ratio, const Times& times);
    /// The row alone.
    void ratio(const std::string& name, double ratio);
    void comment(const std::string& text);

private:
    std::FILE* mpRows;
};

/// Ends the program: a figure that could not be measured must not look like one.
[[noreturn]] void fail(const char* what);

}  // namespace bench

#endif
