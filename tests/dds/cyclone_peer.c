// A foreign peer: the unit's topic type on Eclipse Cyclone DDS, which reads its settings from CYCLONEDDS_URI.
// usage: cyclone_peer DOMAIN READ WRITE PERIOD_MS FILE...
// Prints "LENGTH HASH" for each sample of topic READ. Publishes each FILE as a sample of topic WRITE while a reader is
// matched: all files once if PERIOD_MS is 0, else every PERIOD_MS. Runs until a signal ends it.
#include <dds/dds.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "byte_buffer.h"

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
    while (dds_take(reader, samples, &info, 1, 1) > 0) {
        if (info.valid_data) {
            print_sample(samples[0]);
        }
        dds_return_loan(reader, samples, 1);
    }
}

static void publish(dds_entity_t writer, const char* path) {
    static uint8_t bytes[2 << 20];
    FILE* const file = fopen(path, "rb");
    v2x_ByteBuffer sample = {{0}};
    sample.data._length = sample.data._maximum = (uint32_t)fread(bytes, 1, sizeof bytes, file);
    sample.data._buffer = bytes;
    fclose(file);
    dds_write(writer, &sample);
}

static dds_entity_t make_topic(dds_entity_t participant, const char* name) {
    return dds_create_topic(participant, &v2x_ByteBuffer_desc, name, NULL, NULL);
}

int main(int argc, char** argv) {
    const dds_entity_t participant = dds_create_participant((dds_domainid_t)atoi(argv[1]), NULL, NULL);
    dds_qos_t* const qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    const dds_entity_t reader = dds_create_reader(participant, make_topic(participant, argv[2]), qos, NULL);
    const dds_entity_t writer = dds_create_writer(participant, make_topic(participant, argv[3]), qos, NULL);
    dds_delete_qos(qos);
    if (reader < 0 || writer < 0) {
        fputs("cannot create reader and writer\n", stderr);
        return 3;
    }
    const dds_duration_t period = DDS_MSECS((dds_duration_t)atoi(argv[4]));
    dds_time_t due = 0;
    while (1) {
        take_all(reader);
        dds_publication_matched_status_t matched = {0};
        dds_get_publication_matched_status(writer, &matched);
        if (matched.current_count > 0 && dds_time() >= due) {
            for (int i = 5; i < argc; i++) {
                publish(writer, argv[i]);
            }
            due = period > 0 ? dds_time() + period : DDS_NEVER;
        }
        dds_sleepfor(DDS_MSECS(5));
    }
}
