#pragma once

#include "codecs/mp3_synthesis.h"

// The inverse MDCT of one granule of one channel, with its windows and the overlap
// with the granule before, four sub-bands at a time.
//
// `spectrum` holds 576 lines in sub-band order (18 per sub-band; short blocks already
// arranged as each sub-band's three windows of six lines). `blockType` is 0 (normal),
// 1 (start), 2 (short) or 3 (stop); with `mixed` the two lowest sub-bands are normal
// long blocks. Sub-bands from `usedSubbands` on must hold only zeros: they only pass
// the overlap on. `overlap` is kept by time slot and sub-band. The granule's 18 time
// slots go to out[k][firstSlot + i] for sub-band k, odd sub-bands already turned back
// in frequency; slots firstSlot + 18 and + 19 are written too, with zeros.
void LMP3InverseMdct(float const* spectrum, int blockType, bool mixed, int usedSubbands, float (*overlap)[32],
                     float (*out)[LMP3SlotStride], int firstSlot);

