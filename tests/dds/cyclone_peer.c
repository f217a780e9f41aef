// A foreign peer: the unit's topic type on Eclipse Cyclone DDS, which reads its settings from CYCLONEDDS_URI.
// usage: cyclone_peer DOMAIN READ WRITE [PERIOD_MS SIZE|FILE...]
// Prints "LENGTH HASH" for each sample of topic READ. Publishes on topic WRITE, while a reader is matched, one sample
// for each SIZE (a pattern of that many bytes) or FILE (its content): the series once if PERIOD_MS is 0, else every
// PERIOD_MS. SIGTERM and SIGINT end it with a good-bye to its peers.
#include <dds/dds.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "byte_buffer.h"

static volatile sig_atomic_t is_over = 0;

static void end(int signal) {
    (void)signal;
    is_over = 1;
}

// Returns the result of a call: an entity or a count.
static dds_return_t check(dds_return_t result, const char* what) {
    if (result < 0 && result != DDS_RETCODE_TIMEOUT) {
        fprintf(stderr, "%s: %s\n", what, dds_strretcode(result));
        exit(3);
    }
    return result;
}

// The same text as describe() of payload.h.
static void print_sample(const v2x_ByteBuffer* sample) {
    uint64_t hash = UINT64_C(14695981039346656037);
    for (uint32_t i = 0; i < sample->data._length; i++) {
        hash = (hash ^ sample->data._buffer[i]) * UINT64_C(1099511628211);
    }
    printf("%" PRIu32 " %016" PRIx64 "\n", sample->data._length, hash);
    fflush(stdout);
}

static void take_all(dds_entity_t reader) {
    void* samples[1] = {NULL};
    dds_sample_info_t info;
    while (check(dds_take(reader, samples, &info, 1, 1), "take") > 0) {
        if (info.valid_data) {
            print_sample(samples[0]);
        }
        dds_return_loan(reader, samples, 1);
    }
}

static void publish(dds_entity_t writer, const char* what, unsigned seed) {
    static uint8_t bytes[2 << 20];
    char* rest = NULL;
    size_t size = strtoul(what, &rest, 10);
    if (size > sizeof bytes) {
        size = sizeof bytes;
    }
    for (size_t i = 0; i < size; i++) {
        bytes[i] = (uint8_t)(seed + i * 7 + i / 251);
    }
    if (*rest != '\0') {
        FILE* const file = fopen(what, "rb");
        if (file == NULL) {
            perror(what);
            exit(2);
        }
        size = fread(bytes, 1, sizeof bytes, file);
        fclose(file);
    }
    v2x_ByteBuffer sample = {{0}};
    sample.data._length = sample.data._maximum = (uint32_t)size;
    sample.data._buffer = bytes;
    check(dds_write(writer, &sample), "write");
}

static dds_entity_t make_topic(dds_entity_t participant, const char* name) {
    return check(dds_create_topic(participant, &v2x_ByteBuffer_desc, name, NULL, NULL), "topic");
}

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    signal(SIGTERM, end);
    signal(SIGINT, end);
    const dds_entity_t participant =
        check(dds_create_participant((dds_domainid_t)atoi(argv[1]), NULL, NULL), "participant");
    dds_qos_t* const qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    const dds_entity_t reader =
        check(dds_create_reader(participant, make_topic(participant, argv[2]), qos, NULL), "reader");
    const dds_entity_t writer =
        check(dds_create_writer(participant, make_topic(participant, argv[3]), qos, NULL), "writer");
    dds_delete_qos(qos);

    const dds_duration_t period = argc > 4 ? DDS_MSECS((dds_duration_t)atoi(argv[4])) : 0;
    dds_time_t due = argc > 5 ? 0 : DDS_NEVER;
    while (!is_over) {
        take_all(reader);
        dds_publication_matched_status_t matched = {0};
        check(dds_get_publication_matched_status(writer, &matched), "matched");
        if (matched.current_count > 0 && dds_time() >= due) {
            for (int i = 5; i < argc; i++) {
                publish(writer, argv[i], (unsigned)(i - 5));
            }
            due = period > 0 ? dds_time() + period : DDS_NEVER;
        }
        dds_sleepfor(DDS_MSECS(5));
    }
    dds_delete(participant);
    return 0;
}
