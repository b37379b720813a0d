#pragma once

#include <chrono>

#include "ace/Log_Msg.h"
#include "kolt/clock.h"
#include "kolt/exponential_backoff_iterator.h"

/// The bound on rounds is off.
inline constexpr int QVX_RETRY_INFINITY_TIMES = -1;
/// The bound on seconds is off.
inline constexpr int QVX_RETRY_INFINITY_TIMEOUT = -1;

/**
 * The loop in which all waits for a state are written: probe, sleep longer and longer, probe again. A statement.
 *
 * @code
 *   bool found = false;
 *   QVX_RETRY(times, K8S_QVX_RETRY_TIMEOUT,
 *             found = probe(name),      // the body; it may itself leave the function
 *             found,                    // the success test
 *             return false);            // giving up; where it does not leave the function, the loop ends
 * @endcode
 *
 * The first probe comes at once, a sleep of kolt::clock() and another probe after each that failed, with one line at
 * LM_INFO. The loop gives up after a failed probe once @a times sleeps are over, or once the sleeps add up to @a
 * timeout seconds: so the last one may go beyond it by up to a minute. It cannot be interrupted.
 *
 * @param times    int, or QVX_RETRY_INFINITY_TIMES.
 * @param timeout  int, seconds, or QVX_RETRY_INFINITY_TIMEOUT. Compared as an unsigned number: below -1 is no bound.
 */
#define QVX_RETRY(times, timeout, body, success, giving_up)                                                      \
  do {                                                                                                           \
    int retry_macro_c = 1;                                                                                       \
    unsigned int retry_macro_i = 0;                                                                              \
    Exponential_Backoff_Iterator retry_macro_it(1, 0xFFFFFFFF, 60, true);                                        \
    const Exponential_Backoff_Iterator retry_macro_end;                                                          \
    for (;; ++retry_macro_c, ++retry_macro_it) {                                                                 \
      body;                                                                                                      \
      if (success) break;                                                                                        \
      if (!((static_cast<int>(times) == QVX_RETRY_INFINITY_TIMES || retry_macro_c <= static_cast<int>(times)) && \
            (static_cast<int>(timeout) == QVX_RETRY_INFINITY_TIMEOUT ||                                          \
             retry_macro_it.cumulation() < static_cast<unsigned int>(timeout)) &&                                \
            retry_macro_it != retry_macro_end)) {                                                                \
        giving_up;                                                                                               \
        break;                                                                                                   \
      }                                                                                                          \
      retry_macro_i = *retry_macro_it;                                                                           \
      ACE_DEBUG((LM_INFO, ACE_TEXT("Retry(%d) %N:%l at %u second(s) later.\n"), retry_macro_c, retry_macro_i));  \
      ::kolt::clock().sleep(std::chrono::seconds(retry_macro_i));                                                \
    }                                                                                                            \
  } while (false)
