// The paths through the daemon: traffic on each, whether it arrives, and the lines that many plans have in the table.
#pragma once

#include "stack_desk.h"
#include "table.h"

// A unit whose documents down and items of a reply are all read.
struct Site : Unit {
    Site() { corrections = "SpatDown = true; ReplyItems = true;"; }
};

// Simulators in the place of each source, whose records can be told apart, at so many inputs a second.
constexpr const char* ROLES[SOURCES] = {"learner", "controller", "cloud"};
using Rates = std::array<double, SOURCES>;
constexpr Rates RATES = {20, 10, 10};
void startSource(Unit& unit, Source source, double rate);
void startSources(Unit& unit, const Rates& rates = RATES);
uint64_t endSource(Unit& unit, Source source); // returns how many inputs it has sent
Records endSources(Unit& unit);

size_t times(const std::string& all, const std::string& text);
// Documents that the unit's cloud simulator has shown since its start.
uint64_t documentsUp(const Unit& unit);
// The beats that the learner's simulator had when it ended.
uint64_t heartbeats(const Unit& unit);
// Whether the daemon answers a request of the log tool.
bool logToolAnswered(const Unit& unit);

constexpr const char* ALL_PATHS = "learner controller down up logtool";
// Sends on every path, with simulators that are started and ended: what comes out is to be as `wanted` lists it.
void checkPaths(Unit& unit, const StackDesk& desk, const std::string& what, Table& table,
                const std::string& wanted = ALL_PATHS);
// Of simulators that run: something comes out of each path.
void checkTraffic(const Unit& unit, const StackDesk& desk, const std::string& what, Table& table);
void checkLives(Unit& unit, const std::string& what, Table& table);
// It ends in order at SIGTERM.
void checkEnds(Unit& unit, const std::string& what, Table& table);
