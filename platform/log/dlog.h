/* SPDX-License-Identifier: MIT */
/**
 * @file dlog.h
 * The platform log, as this library uses it. libplatform-log.so defines it.
 */
#ifndef PLATFORM_LOG_DLOG_H
#define PLATFORM_LOG_DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Priority numbers of the platform log that this library uses. */
enum
{
    DLOG_INFO = 4,
    DLOG_ERROR = 6
};

/**
 * Writes one line to the platform log. Any thread may call it at any time.
 *
 * @param log_id   the log buffer; 0 is the main one
 * @param priority DLOG_INFO or DLOG_ERROR
 * @param tag      names the component that speaks
 * @param format   as for printf, followed by its arguments
 * @return the number of bytes written, negative on failure
 */
/* NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the platform's */
int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
