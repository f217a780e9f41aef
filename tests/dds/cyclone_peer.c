/* A foreign peer: the unit's topic type on Eclipse Cyclone DDS, which reads its settings from CYCLONEDDS_URI.
 * usage: cyclone_peer DOMAIN read|write TOPIC [SIZE...]
 * read prints "LENGTH HASH" for each sample; write sends a sample of each size once a reader is there. */
#include <dds/dds.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "byte_buffer.h"

static void check(dds_return_t result, const char* what) {
    if (result < 0) {
        fprintf(stderr, "%s: %s\n", what, dds_strretcode(result));
        exit(3);
    }
}

/* As payload.h has it. */
static void print_sample(const v2x_ByteBuffer* sample) {
    uint64_t hash = UINT64_C(14695981039346656037);
    for (uint32_t i = 0; i < sample->data._length; i++) {
        hash = (hash ^ sample->data._buffer[i]) * UINT64_C(1099511628211);
    }
    printf("%" PRIu32 " %016" PRIx64 "\n", sample->data._length, hash);
    fflush(stdout);
}

static void read_all(dds_entity_t participant, dds_entity_t topic, const dds_qos_t* qos) {
    const dds_entity_t reader = dds_create_reader(participant, topic, qos, NULL);
    check(reader, "reader");
    for (;;) {
        void* samples[1] = {NULL};
        dds_sample_info_t info;
        while (dds_take(reader, samples, &info, 1, 1) > 0) {
            if (info.valid_data) {
                print_sample(samples[0]);
            }
            dds_return_loan(reader, samples, 1);
        }
        dds_sleepfor(DDS_MSECS(5));
    }
}

static void write_all(dds_entity_t participant, dds_entity_t topic, const dds_qos_t* qos, char** sizes) {
    const dds_entity_t writer = dds_create_writer(participant, topic, qos, NULL);
    check(writer, "writer");
    dds_publication_matched_status_t status = {0};
    while (status.current_count < 1) {
        check(dds_get_publication_matched_status(writer, &status), "matched");
        dds_sleepfor(DDS_MSECS(5));
    }
    for (unsigned seed = 0; *sizes != NULL; sizes++, seed++) {
        const size_t size = strtoul(*sizes, NULL, 10);
        uint8_t* bytes = malloc(size + 1);
        for (size_t i = 0; bytes != NULL && i < size; i++) {
            bytes[i] = (uint8_t)(seed + i * 7 + i / 251);
        }
        v2x_ByteBuffer sample = {{0}};
        sample.data._length = sample.data._maximum = (uint32_t)size;
        sample.data._buffer = bytes;
        check(dds_write(writer, &sample), "write");
        free(bytes);
    }
    for (;;) {
        dds_sleepfor(DDS_SECS(1));
    }
}

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    const dds_entity_t participant = dds_create_participant((dds_domainid_t)atoi(argv[1]), NULL, NULL);
    check(participant, "participant");
    const dds_entity_t topic = dds_create_topic(participant, &v2x_ByteBuffer_desc, argv[3], NULL, NULL);
    check(topic, "topic");
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    if (strcmp(argv[2], "read") == 0) {
        read_all(participant, topic, qos);
    }
    write_all(participant, topic, qos, argv + 4);
}
