/* The C interface, used as a C program does: a worked example, every kind of argument, and what it says of mistakes.
   usage: c_api_test, in a folder that may be written to */
#include <kelvonclip/c_api.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

#define CHECK(holds)                                                                                                   \
    do {                                                                                                               \
        if (!(holds)) {                                                                                                \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #holds);                                                \
            ++failures;                                                                                                \
        }                                                                                                              \
    } while (0)
#define OK(call) SAYS(call, NULL)
#define SAYS(call, expected) says(call, expected, #call, __LINE__)

static void says(char const* message, char const* expected, char const* call, int line) {
    if (message == expected || (message != NULL && expected != NULL && strcmp(message, expected) == 0)) return;
    fprintf(stderr, "%s:%d: %s: %s\n", __FILE__, line, call, message == NULL ? "(null)" : message);
    ++failures;
}

enum { AUDIO_UNIT = 8192, SAMPLES = 4800 };

static char const NAME[] = "gr\xC3\xBC\xC3\x9F" "e \xE4\xB8\xAD.clip"; /* UTF-8 on both hosts */
static char const TITLE[] = "Tagesschau \xF0\x9F\x8E\xAC & more";

/* A frame in one call, and what was read back together. */
static void write_together(uint32_t clip, uint32_t video, uint32_t timecode) {
    uint32_t const size = kclip_track_unit_size(video), small = kclip_track_unit_size(timecode);
    uint32_t stride = 0, small_stride = 0, done[2] = {0, 0};
    unsigned char* const pictures = (unsigned char*)kclip_unit_buffer_alloc(video, 1, &stride);
    unsigned char* const labels = (unsigned char*)kclip_unit_buffer_alloc(timecode, 2, &small_stride);
    CHECK(pictures != NULL && labels != NULL && stride >= size && small_stride >= small);
    memset(pictures, 42, size);
    labels[small_stride] = 7;
    kclip_unit_run const frame[] = {
        {video, 0, 1, stride, size, pictures},
        {timecode, 0, 2, small_stride, small, labels},
    };
    OK(kclip_clip_write_units(clip, frame, 2, done));
    CHECK(done[0] == 1 && done[1] == 2);
    SAYS(kclip_clip_write_units(clip, NULL, 1, NULL), "Invalid argument (null pointer)");
    SAYS(kclip_clip_write_units(0, frame, 2, NULL), "invalid clip handle");

    memset(pictures, 0, size);
    memset(labels, 9, 2 * (size_t)small_stride);
    done[0] = done[1] = 0;
    OK(kclip_clip_read_units(clip, frame, 2, done));
    CHECK(done[0] == 1 && done[1] == 2);
    CHECK(pictures[size - 1] == 42 && labels[0] == 0 && labels[small_stride] == 7);
    labels[small_stride] = 0;
    OK(kclip_track_read_units(timecode, 0, 2, labels, small_stride));
    CHECK(labels[small_stride] == 7);
    kclip_unit_buffer_free(pictures);
    kclip_unit_buffer_free(labels);
}

static void create(void) {
    uint32_t creation = 0, clip = 0;
    OK(kclip_create_begin(NAME, kclip_standard_from_text("1080i 59.94Hz"), &creation));
    SAYS(kclip_create_begin(NAME, 18, &clip), "Already creating clip with same name");
    OK(kclip_create_cancel(creation));
    OK(kclip_create_begin(NAME, 18, &creation));
    OK(kclip_cfg_track_count_video(creation, 1));
    OK(kclip_cfg_track_count_key(creation, 0));
    OK(kclip_cfg_video_avci(creation));
    SAYS(kclip_cfg_video_dv(creation), "Video can only be configured once");
    OK(kclip_cfg_track_count_audio(creation, 1));
    OK(kclip_cfg_audio_hemlock(creation, 2));
    OK(kclip_cfg_track_timecode(creation));
    OK(kclip_cfg_clip_timecode2(creation, 1234, true, false, false));
    OK(kclip_create_finish(creation, &clip));

    CHECK(kclip_clip_track_count(clip) == 3);
    CHECK(kclip_clip_is_writable(clip));
    uint32_t const video = kclip_clip_get_track(clip, 0), audio = kclip_clip_get_track(clip, 1);
    uint32_t const timecode = kclip_clip_get_track(clip, 2);
    CHECK(kclip_track_category(video) == KCLIP_VIDEO && kclip_track_video_type(video) == KCLIP_AVC);
    CHECK(kclip_track_avc_flavor(video) == KCLIP_AVC_INTRA && kclip_track_avc_class(video) == 100);
    CHECK(kclip_track_category(audio) == KCLIP_AUDIO && kclip_track_audio_type(audio) == KCLIP_HEMLOCK);
    CHECK(kclip_track_category(timecode) == KCLIP_TIMECODE);
    CHECK(kclip_track_audio_subchannel_count(audio) == 2);

    uint32_t const size = kclip_track_unit_size(video);
    CHECK(size == 472576);
    char* const unit = (char*)malloc(size);
    memset(unit, 42, size);
    OK(kclip_track_write(video, 0, unit, size));
    SAYS(kclip_track_write(video, 0, unit, size + 1), "Buffer is too large");
    free(unit);
    write_together(clip, video, timecode);
    OK(kclip_track_set_timecode(timecode, 0, 223165, true));

    uint32_t writer = 0;
    static int32_t left[SAMPLES], right[SAMPLES];
    for (int i = 0; i < SAMPLES; ++i) {
        left[i] = i * 1009;
        right[i] = -left[i];
    }
    int32_t const* const buffers[] = {left, right};
    OK(kclip_seqwrite_begin(audio, &writer));
    CHECK(kclip_seqwrite_subchannel_count(writer) == 2);
    OK(kclip_seqwrite_write(writer, buffers, SAMPLES));
    OK(kclip_seqwrite_finish(writer));

    OK(kclip_clip_set_text(clip, KCLIP_TITLE, TITLE));
    OK(kclip_clip_set_meta(clip, "Take", "7"));
    SAYS(kclip_clip_set_meta(clip, "two words", "7"), "Invalid meta name");
    SAYS(kclip_clip_set_text(clip, KCLIP_TITLE, "\xFF"), "bad conversion");
    SAYS(kclip_clip_set_text(clip, KCLIP_UUID, "x"), "The text can't be set");
    OK(kclip_clip_set_trims(clip, 0, 0));
    OK(kclip_clip_checkpoint(clip));
    OK(kclip_clip_checkpoint_every(clip, 0, false));
    OK(kclip_clip_share(clip));
    OK(kclip_clip_close_checked(clip));
    SAYS(kclip_clip_close_checked(clip), "invalid clip handle");
}

static void play(void) {
    uint32_t clip = 0;
    OK(kclip_clip_open(NAME, &clip));
    OK(kclip_clip_open_tracks(clip));
    OK(kclip_clip_refresh(clip));
    CHECK(!kclip_clip_get_is_child_clip(clip));
    CHECK(kclip_clip_get_video_standard(clip) == 18);
    CHECK(kclip_clip_get_last_meta_edit(clip) > 1700000000);
    uint32_t fields = 0;
    bool drop_frame = false;
    OK(kclip_clip_get_timecode(clip, &fields, &drop_frame));
    CHECK(fields == 1234 && drop_frame);
    CHECK(kclip_clip_get_timecode_source(clip) == KCLIP_STRIPED);

    char text[64];
    CHECK(kclip_clip_get_text(clip, KCLIP_TITLE, text, sizeof text) == sizeof TITLE - 1);
    CHECK(strcmp(text, TITLE) == 0);
    CHECK(kclip_clip_get_text(clip, KCLIP_TITLE, text, 14) == sizeof TITLE - 1);
    CHECK(strcmp(text, "Tagesschau ") == 0); /* no part of a character */
    CHECK(kclip_clip_get_text(clip, KCLIP_TITLE, NULL, 0) == sizeof TITLE - 1);
    CHECK(kclip_clip_get_text(clip, KCLIP_FILE_NAME, text, sizeof text) == sizeof NAME - 1 && strcmp(text, NAME) == 0);
    CHECK(kclip_clip_get_text(clip, KCLIP_UUID, text, sizeof text) == 38);
    CHECK(kclip_clip_meta_count(clip) == 1);
    CHECK(kclip_clip_get_meta_name(clip, 0, text, sizeof text) == 4 && strcmp(text, "Take") == 0);
    CHECK(kclip_clip_get_meta(clip, "Take", text, sizeof text) == 1 && strcmp(text, "7") == 0);
    CHECK(kclip_clip_get_meta(clip, "\xFF", text, sizeof text) == 0 && text[0] == 0);

    uint32_t const video = kclip_clip_get_track(clip, 0), audio = kclip_clip_get_track(clip, 1);
    uint32_t const timecode = kclip_clip_get_track(clip, 2);
    CHECK(kclip_track_get_format_name(video, text, sizeof text) == 13 && strcmp(text, "avci100-1080i") == 0);
    CHECK(kclip_track_length_in_units(video) == 1 && kclip_track_length_in_fields(video) == 2);
    uint32_t const size = kclip_track_unit_size(video);
    char* const unit = (char*)calloc(size, 1);
    OK(kclip_track_read(video, 0, unit));
    CHECK(unit[0] == 42 && memcmp(unit, unit + 1, size - 1) == 0);
    SAYS(kclip_track_write(video, 0, unit, size), "Clip was opened in read-only mode");
    free(unit);
    OK(kclip_track_get_timecode(timecode, 0, &fields, &drop_frame));
    CHECK(fields == 223165 && drop_frame && kclip_track_valid_timecode(timecode, 0));

    uint32_t reader = 0;
    static int32_t left[100], right[100];
    int32_t* const buffers[] = {left, right};
    OK(kclip_seqread_begin(audio, &reader));
    CHECK(kclip_seqread_subchannel_count(reader) == 2);
    uint64_t const remaining = kclip_seqread_samples_remaining(reader);
    OK(kclip_seqread_seek(reader, 2000));
    OK(kclip_seqread_read(reader, buffers, 100));
    CHECK(left[0] == 2000 * 1009 && left[99] == 2099 * 1009);
    CHECK(right[99] == -left[99]);
    CHECK(kclip_seqread_position(reader) == 2100 && kclip_seqread_samples_remaining(reader) == remaining - 2100);
    kclip_seqread_finish(reader);
    SAYS(kclip_seqread_read(reader, buffers, 1), "Invalid handle");

    CHECK(kclip_message_with_file("Read failed", clip, text, sizeof text) == sizeof NAME - 1 + 13);
    CHECK(strncmp(text, NAME, sizeof NAME - 1) == 0 && strcmp(text + sizeof NAME - 1, ": Read failed") == 0);
    kclip_clip_close(clip);
}

static void mistakes(void) {
    uint32_t clip = 77;
    char const* const message = kclip_clip_open(NULL, &clip);
    SAYS(message, "Invalid filename");
    CHECK(message == kclip_clip_open("", &clip)); /* equal texts are the identical pointer */
    CHECK(kclip_message_kind(message) == 101 && kclip_message_kind(NULL) == 0);
    CHECK(kclip_message_kind("\xFF") == 1);
    SAYS(kclip_clip_open(NAME, NULL), "Invalid clip handle");
    SAYS(kclip_clip_open("\xC3", &clip), "bad conversion");
    CHECK(kclip_clip_open("no such folder/clip", &clip) != NULL);
    CHECK(clip == 77);
    kclip_clip_close(0);
    CHECK(kclip_clip_track_count(0) == 0 && kclip_clip_get_is_child_clip(0));
    SAYS(kclip_track_read(0, 0, NULL), "Bad Handle");
    SAYS(kclip_seqwrite_finish(0), "Invalid handle");
}

static void enumerations(void) {
    uint32_t value = 0, count = 0;
    for (bool more = kclip_standard_first(&value); more; more = kclip_standard_next(&value))
        ++count;
    CHECK(count == 27 && value == 27);
    CHECK(!kclip_standard_first(NULL) && !kclip_standard_is_valid(28) && kclip_standard_is_valid(27));
    SAYS(kclip_standard_to_text(20), "1080i 50Hz");
    CHECK(kclip_standard_to_text(0) == NULL);
    CHECK(kclip_standard_from_text(NULL) == 0 && kclip_standard_from_text("\xFF") == 0);
    CHECK(kclip_flag_from_text("df") == KCLIP_DF && kclip_flag_from_text("DF") == 0);
    SAYS(kclip_category_to_text(KCLIP_TIMECODE), "timecode");
    SAYS(kclip_timecode_source_to_text(KCLIP_TC0_STRIPED), "tc0striped");
    CHECK(kclip_standard_width(20) == 1920 && kclip_standard_field_height(20) == 540 && kclip_standard_is_interlaced(20));
    CHECK(kclip_standard_frequency(20) == 3 && kclip_standard_resolution(20) == 3 && kclip_standard_of(3, 3) == 20);
    uint32_t numerator = 0, denominator = 0;
    CHECK(kclip_standard_ratio(18, &numerator, &denominator) && numerator == 60000 && denominator == 1001);

    kclip_format format;
    CHECK(kclip_format_info(20, "avci100-1080i", &format) && format.unit_size == 568832 && format.creatable == 1);
    CHECK(format.category == KCLIP_VIDEO && format.fields_per_unit == 2);
    CHECK(!kclip_format_info(20, "\xFF", &format) && format.unit_size == 0);
    SAYS(kclip_format_name(20, 0), "avci50-1080i");
    CHECK(!kclip_format_video_creatable(16, KCLIP_DV));
    CHECK(kclip_j2k_key_max_size(20) % 4096 == 0);
    CHECK(kclip_library_version() >= 1000 && kclip_library_version_text() != NULL);
}

static void timecodes(void) {
    kclip_timecode timecode, back;
    kclip_label const label = {0, 1, 2, 3, 4, 1};
    kclip_label shown;
    unsigned char bytes[8];
    char text[32];
    CHECK(kclip_timecode_from_label(2, KCLIP_DF, &label, &timecode));
    CHECK(timecode.frequency == 2 && timecode.flag == KCLIP_DF && timecode.fields == 223165);
    CHECK(kclip_timecode_to_label(&timecode, &shown) && memcmp(&shown, &label, sizeof label) == 0);
    CHECK(kclip_timecode_to_text(&timecode, 4, text, sizeof text) == 11 && strcmp(text, "01;02;03;04") == 0);
    CHECK(kclip_timecode_from_text(2, KCLIP_DF, text, &back) && kclip_timecode_cmp(&timecode, &back) == 0);
    CHECK(kclip_timecode_to_tc64(&timecode, bytes) && memcmp(bytes, "\1\0\2\0\3\10\4\4", 8) == 0);
    CHECK(kclip_timecode_from_tc64(2, bytes, &back) && back.fields == timecode.fields && back.flag == KCLIP_DF);
    CHECK(kclip_timecode_to_sony(&timecode, bytes) && kclip_timecode_from_sony(2, bytes, &back));
    CHECK(back.fields == timecode.fields);

    CHECK(kclip_timecode_from_fields(3, KCLIP_NDF, 4319999, &timecode)); /* the last field of a day at 50Hz */
    kclip_timecode_add(&timecode, 1, true);
    CHECK(timecode.fields == 0);
    kclip_timecode_subtract(&timecode, 1, true);
    CHECK(timecode.fields == 4319999);
    kclip_timecode_decrease(&timecode, 5000000);
    CHECK(timecode.fields == 0);
    kclip_timecode_set_fields(&timecode, 9);
    kclip_timecode_force_field(&timecode, false);
    CHECK(timecode.fields == 8);
    kclip_timecode_become_a_day(&timecode);
    CHECK(timecode.fields == 4320000);
    kclip_timecode_wrap24(&timecode);
    CHECK(timecode.fields == 0);
    kclip_timecode_set_flag(&timecode, KCLIP_DF); /* 50Hz has no drop-frame */
    CHECK(timecode.flag == KCLIP_NDF);
    kclip_timecode const start = {3, KCLIP_NDF, 4319990}, length = {3, KCLIP_NDF, 20};
    CHECK(kclip_timecode_is_inrange24(&timecode, &start, &length));
    CHECK(!kclip_timecode_is_inrange(&timecode, &start, &length));
    CHECK(kclip_timecode_cmp24(&timecode, &start) == 1 && kclip_timecode_cmp(&timecode, &start) == -1);
    CHECK(kclip_timecode_fields_per_day(2, KCLIP_DF) == 5178816);

    kclip_timecode undefined = {0, 0, 5};
    CHECK(!kclip_timecode_is_defined(&undefined) && !kclip_timecode_is_defined(NULL));
    kclip_timecode_add(&undefined, 1, false);
    CHECK(undefined.fields == 5);
    kclip_timecode_add(NULL, 1, false);
    CHECK(!kclip_timecode_to_label(&undefined, &shown) && shown.frames == 0);
    CHECK(kclip_timecode_to_text(&undefined, 4, text, sizeof text) == 9 && strcmp(text, "(invalid)") == 0);
    CHECK(!kclip_timecode_from_text(2, KCLIP_DF, "\xFF", &back) && back.frequency == 0);
    CHECK(!kclip_timecode_from_label(2, KCLIP_DF, NULL, &back));
    CHECK(!kclip_timecode_from_fields(0, KCLIP_DF, 1, &back));
    CHECK(!kclip_timecode_from_fields(11, KCLIP_DF, 1, NULL));
}

static void byteOrder(void) {
    CHECK(kclip_from_be_u16_of_8(0x12, 0x34) == 0x1234 && kclip_to_be_u16_of_8(0x12, 0x34) == 0x3412);
    CHECK(kclip_from_be_u32(0x12345678) == 0x78563412);
    CHECK(kclip_from_be_u64_of_32(0x01020304, 0x05060708) == 0x0403020108070605ull);
    CHECK(kclip_to_be_s64(1) == 0x0100000000000000ll);
    CHECK(kclip_from_be_s8(-1) == -1);
}

int main(void) {
    create();
    play();
    mistakes();
    enumerations();
    timecodes();
    byteOrder();
    if (failures == 0) puts("the C interface works");
    return failures == 0 ? 0 : 1;
}
