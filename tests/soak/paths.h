// The paths through the daemon: traffic on each, and whether it arrives.
#pragma once

#include "stack_desk.h"

constexpr double LEARNER_RATE = 20;
constexpr double CONTROLLER_RATE = 10;
constexpr double CLOUD_RATE = 10;

// Simulators of a unit whose records can be told apart.
void startLearner(Unit& unit, double rate = LEARNER_RATE);
void startController(Unit& unit, double rate = CONTROLLER_RATE);
void startCloud(Unit& unit, double rate = CLOUD_RATE);

// Documents that the unit's cloud simulator has shown since its start.
uint64_t documentsUp(const Unit& unit);

// Whether the daemon answers a request of the log tool.
bool logToolAnswered(const Unit& unit);

constexpr const char* ALL_PATHS = "learner controller down up logtool";

// Sends on every path until what comes out is as `wanted` lists it, at most so long; the paths that worked. The
// simulators of the devices and the cloud are started and ended.
std::string pathsAtWork(Unit& unit, const StackDesk& desk, const std::string& wanted, int milliseconds = 10000);
