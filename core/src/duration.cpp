// duration: the text of durations in messages.
#include "duration.h"

#include <stdio.h>

// Required: with no whole minutes the minutes are "0:" even after hours, so one hour is
// "1:0:00.00".
const char* RvDurationString(uint32_t milliseconds)
{
    // Procedurals report their loading times from render threads, hence one buffer per thread.
    static thread_local char text[32];
    const unsigned hours = milliseconds / 3600000 % 99;
    const unsigned minutes = milliseconds / 60000 % 60;
    const unsigned seconds = milliseconds / 1000 % 60;
    const unsigned hundredths = milliseconds % 1000 / 10;

    char hours_text[8] = "";
    if (hours != 0)
        snprintf(hours_text, sizeof hours_text, "%u:", hours);
    const char* const minutes_format = hours != 0 && minutes != 0 ? "%02u:" : "%u:";
    char minutes_text[8];
    snprintf(minutes_text, sizeof minutes_text, minutes_format, minutes);
    snprintf(text, sizeof text, "%s%s%02u.%02u", hours_text, minutes_text, seconds, hundredths);
    return text;
}
