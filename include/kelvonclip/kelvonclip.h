/// The whole interface of the clip library.
#pragma once

#include <kelvonclip/byte_order.h>
#include <kelvonclip/info_j2k.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>
