#pragma once

#include "kolt/export.h"

/**
 * Reads a span of time, or a time of the day as the span since midnight.
 *
 * Understood are "HH:MM" and "HH:MM:SS", with minutes and seconds below 60 and any number of hours, and numbers with a
 * unit, largest unit first: "1d", "2h", "30m", "45s", "1h30m".
 *
 * @param text     need not end with a NUL.
 * @param length   its length, or -1: up to the NUL.
 * @param seconds  the result; untouched on failure.
 * @return whether the whole text was understood and the number of seconds fits.
 */
TESSARIN_API bool relative_time_to_seconds(const char* text, int length, unsigned int& seconds);
