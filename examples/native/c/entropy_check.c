/*
 * A native plugin in C: measures whether the kernel's random numbers look random, before anything
 * on the host is trusted because of them, and keeps the result.
 *
 * It says what it found on its standard output, which is bootforge's: during a boot it stands among
 * the log's lines.
 */
#include <bootforge/plugin.h>
#include <stdio.h>
#include <sys/random.h>

enum { SAMPLE = 1 << 16, VALUES = 256 };

static const char report[] = "/var/lib/nimbus/entropy-report";

/* Fills the sample; 0 on success. */
static int draw(unsigned char* sample) {
  size_t have = 0;
  while (have < SAMPLE) {
    ssize_t count = getrandom(sample + have, SAMPLE - have, 0);
    if (count < 0) return 1;
    have += (size_t)count;
  }
  return 0;
}

/* The chi-squared statistic of the byte values: near 255 when all are equally likely. */
static double chi_squared(const unsigned char* sample) {
  unsigned counts[VALUES] = {0};
  double expected = (double)SAMPLE / VALUES;
  double sum = 0;
  for (size_t i = 0; i < SAMPLE; ++i) ++counts[sample[i]];
  for (size_t i = 0; i < VALUES; ++i) {
    double difference = counts[i] - expected;
    sum += difference * difference / expected;
  }
  return sum;
}

static int start(void) {
  static unsigned char sample[SAMPLE];
  if (draw(sample) != 0) {
    perror("entropy_check: getrandom");
    return 1;
  }
  double statistic = chi_squared(sample);
  /* A fair source is outside of this once in more boots than any host has. */
  int good = statistic > 100 && statistic < 500;
  FILE* file = fopen(report, "w");
  if (file == NULL) {
    perror(report);
    return 1;
  }
  int failed = fprintf(file, "sample: %d bytes\nchi-squared: %.1f\nverdict: %s\n", SAMPLE,
                       statistic, good ? "random" : "not random") < 0;
  if (fclose(file) != 0) failed = 1;
  if (failed) perror(report);
  printf("entropy_check: chi-squared of %d bytes is %.1f, 255 expected\n", SAMPLE, statistic);
  return failed || !good;
}

/* After the saved seed has been stirred in, before the host counts its keys as good. */
static const char* const requires_list[] = {"entropy-ready", NULL};
static const char* const provides_list[] = {"keys-ready", NULL};

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1,
    .requires_ = requires_list,
    .provides = provides_list,
};

BOOTFORGE_EXPORT const struct bootforge_operations operations = {
    .start = start,
};
