/* SPDX-License-Identifier: Apache-2.0 */

/* Hello world with a second thread, asleep: what a process takes that does nothing. */
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

static void* sleep_for_good(void* nothing) {
  pause();
  return nothing;
}

int main(void) {
  pthread_t thread;
  if (pthread_create(&thread, NULL, sleep_for_good, NULL) != 0) return 1;
  puts("hello");
  fflush(stdout);
  pause();
  return 0;
}
