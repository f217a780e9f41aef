// Around the targets whose input ends at the stack application: configuration before, checks of the frames after.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// Heap memory that ends where the bytes end, so that the sanitizer sees a read behind them.
std::unique_ptr<uint8_t[]> exactCopy(const uint8_t* data, size_t size);

// Loads a configuration and opens the (fake) sockets at the first call; aborts when that fails.
void startHandOver();

// Aborts when a frame's lengths disagree or exceed what the stack application takes; then forgets frames and log lines.
void checkHandOver();
