// duration: the one format of every duration in messages.
#include "duration.h"

#include <stdio.h>

const char* RvDurationString(uint32_t milliseconds)
{
    static char text[32];
    const unsigned long hours = milliseconds / 3600000 % 99;
    const unsigned long minutes = milliseconds / 60000 % 60;
    const unsigned long seconds = milliseconds / 1000 % 60;
    const unsigned hundredths = milliseconds % 1000 / 10;
    char hours_text[8] = "";
    char minutes_text[8] = "0:"; // Required: a plain 0 even after hours
    if (hours)
        snprintf(hours_text, sizeof hours_text, "%ld:", static_cast<long>(hours));
    if (minutes)
        snprintf(minutes_text, sizeof minutes_text,
                 hours ? "%02ld:" : "%ld:", static_cast<long>(minutes));
    snprintf(text, sizeof text, "%s%s%02ld.%02u", hours_text, minutes_text,
             static_cast<long>(seconds), hundredths);
    return text;
}
