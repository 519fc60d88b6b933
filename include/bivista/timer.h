/* Stopwatch slots: processor time (clock) and wall time (gettimeofday). Slot numbers are not
 * checked: processor slots 0..BIVISTA_TIMER_SLOTS-1, wall slots 0..BIVISTA_TIMER2_SLOTS-1. */
#ifndef BIVISTA_TIMER_H
#define BIVISTA_TIMER_H

#include "bivista/bv_export.h"

#define BIVISTA_TIMER_SLOTS 138
#define BIVISTA_TIMER2_SLOTS 128

BIVISTA_EXTERN_C_BEGIN

BIVISTA_API long StartTimer(int slot);
BIVISTA_API long CumulativeTime(int slot);
/* Logs and clears the slots first .. end-1 (exclusive end). */
BIVISTA_API void ShowTime(int first, int end);
/* Logs the time since slot started under the label of index label, then restarts the slot. */
BIVISTA_API void GetCurrentDuration(int label, int slot);

BIVISTA_API void StartTimer2(int slot);
/* Accumulates milliseconds; returns the microseconds-field difference. */
BIVISTA_API long CumulativeTime2(int slot);
/* Logs and clears the slots first .. last (inclusive). */
BIVISTA_API void ShowTime2(int first, int last, const char* label);

BIVISTA_EXTERN_C_END

#endif
