// Decodes a SPAT frame and prints its intersections, phases, lights and times. Compiles as C11 and as C++11.
// usage: decode_spat HEX
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include "v2xapp_commoncodec.h"
#include "v2xapp_upercodec.h"

#define TIME_UNKNOWN 36001 // TimeMark: tenths of a second; this value means unknown

// Indexed by LightState.
static const char* const LIGHTS[] = {
    "unavailable",     "dark",   "flashing red",   "red", "flashing green", "permissive green",
    "protected green", "yellow", "flashing yellow"};

// Converts hexadecimal digits to bytes. Returns the number of bytes; -1 if the text has other characters, an odd number
// of digits or more than `capacity` bytes.
static int ParseHex(const char* text, uint8_t* bytes, int capacity) {
    int size = 0;
    for (; *text != '\0'; text += 2) {
        if (size == capacity || !isxdigit((unsigned char)text[0]) || !isxdigit((unsigned char)text[1])) {
            return -1;
        }
        const char pair[] = {text[0], text[1], '\0'};
        bytes[size++] = (uint8_t)strtoul(pair, NULL, 16);
    }
    return size;
}

// Prints one time; `time` is null for an absent optional member.
static void PrintTime(const char* name, const TimeMark_t* time) {
    if (time == NULL) {
        return;
    }
    if (*time == TIME_UNKNOWN) {
        printf(", %s unknown", name);
    } else {
        printf(", %s %.1f s", name, (double)*time / 10);
    }
}

static const char* GetLightName(LightState_t light) {
    const LightState_t count = sizeof LIGHTS / sizeof LIGHTS[0];
    return light >= 0 && light < count ? LIGHTS[light] : "unknown light";
}

static void PrintTiming(const TimeChangeDetails_t* timing) {
    if (timing == NULL) {
        return;
    }
    if (timing->present == TimeChangeDetails_PR_counting) {
        const TimeCountingDown_t* times = &timing->choice.counting;
        printf(", from now");
        PrintTime("start", &times->startTime);
        PrintTime("earliest end", times->minEndTime);
        PrintTime("latest end", times->maxEndTime);
        PrintTime("likely end", &times->likelyEndTime);
        PrintTime("next start", times->nextStartTime);
        PrintTime("next duration", times->nextDuration);
    } else if (timing->present == TimeChangeDetails_PR_utcTiming) {
        const UTCTiming_t* times = &timing->choice.utcTiming;
        printf(", in the UTC hour");
        PrintTime("start", &times->startUTCTime);
        PrintTime("earliest end", times->minEndUTCTime);
        PrintTime("latest end", times->maxEndUTCTime);
        PrintTime("likely end", &times->likelyEndUTCTime);
        PrintTime("next start", times->nextStartUTCTime);
        PrintTime("next end", times->nextEndUTCTime);
    } else { // the decoder leaves an alternative of a newer edition empty
        printf(", times of a newer edition");
    }
}

static void PrintPhase(const Phase_t* phase) {
    for (int i = 0; i < phase->phaseStates.list.count; i++) {
        const PhaseState_t* state = phase->phaseStates.list.array[i];
        printf("  phase %ld: %s", phase->id, GetLightName(state->light));
        PrintTiming(state->timing);
        printf("\n");
    }
}

static void PrintSpat(const SPAT_t* spat) {
    printf("SPAT, message count %ld\n", spat->msgCnt);
    for (int i = 0; i < spat->intersections.list.count; i++) {
        IntersectionState_t* intersection = spat->intersections.list.array[i];
        const NodeReferenceID_t* id = &intersection->intersectionId;
        int64_t status = 0;
        v2xcodec_bitString2Long(&intersection->status, &status);
        printf("intersection %ld, region %ld, status 0x%04x\n", id->id, id->region != NULL ? *id->region : 0,
               (unsigned)status);
        for (int j = 0; j < intersection->phases.list.count; j++) {
            PrintPhase(intersection->phases.list.array[j]);
        }
    }
}

int main(int argc, char** argv) {
    static uint8_t bytes[INT16_MAX];
    const int size = argc == 2 ? ParseHex(argv[1], bytes, INT16_MAX) : -1;
    if (size < 1) {
        fprintf(stderr, "usage: decode_spat HEX\n");
        return 2;
    }
    ASNSTRUCT_HANDLE frame = NULL;
    const int32_t result = v2xcodec_uperDec(&frame, bytes, (int16_t)size);
    if (result != 0) { // there is no frame to free
        fprintf(stderr, "decode_spat: %s\n", result == -3 ? "bytes follow the frame" : "not a frame");
        return 1;
    }
    const bool isSpat = v2xcodec_getMsgType(&frame, NULL) == V2XCODEC_MSG_SPAT;
    if (isSpat) {
        PrintSpat(&((MessageFrame_t*)frame)->choice.spatFrame);
    } else {
        fprintf(stderr, "decode_spat: the frame is not a SPAT\n");
    }
    v2xcodec_freeStrcut(&frame);
    return isSpat ? 0 : 1;
}
