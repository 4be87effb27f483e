/// Results as tables for people, and whether they mean anything.
#ifndef QO_BENCH_TABLES_H
#define QO_BENCH_TABLES_H

#include <string>
#include <vector>

#include "results.h"

/// Medians over the rounds, and half of how far the middle half of them is apart; a column for each contender.
std::string qo_table_of_medians(const QoResults& results, const std::vector<std::string>& contenders);
/// The first contender's value against each other's in the same round, median over the rounds. What was not measured of
/// both is "–".
std::string qo_table_of_ratios(const QoResults& results, const std::vector<std::string>& contenders);

/// Processes that wanted to run in the last minute.
double qo_machine_load();

/// Why times mean little; empty when they do not.
/// @param load that the machine had before
/// @param steady the values of something that takes the same time in every round
std::string qo_doubts(double load, unsigned processors, const std::vector<double>& steady);

#endif
