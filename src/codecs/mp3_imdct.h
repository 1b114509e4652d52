#pragma once

// The inverse MDCT of one granule of one channel, with its windows and the overlap
// with the granule before, four sub-bands at a time.
//
// `spectrum` holds 576 lines in sub-band order (18 per sub-band; short blocks already
// arranged as each sub-band's three windows of six lines). `blockType` is 0 (normal),
// 1 (start), 2 (short) or 3 (stop); with `mixed` the two lowest sub-bands are normal
// long blocks. Sub-bands from `usedSubbands` on must hold only zeros: they only pass
// the overlap on. `overlap` is kept by time slot and sub-band; `out` receives the 18
// time slots of 32 sub-band samples, odd sub-bands already turned back in frequency.
void LMP3InverseMdct(float const* spectrum, int blockType, bool mixed, int usedSubbands, float (*overlap)[32],
                     float (*out)[32]);

