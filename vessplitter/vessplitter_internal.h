// Splitter internals reached by the push path and by tests: the output step,
// the enhancement-layer timing steps and the process-wide enhancement-layer
// clock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "vessplitter.h"

// Ticks per second of the enhancement layer's clock: 90000 at load, replaced
// by the parser's time scale at every enhancement-layer IDR (a time scale of
// 0 is not taken). Shared by all splitters of the process, so atomic: a
// splitter on another thread may replace it at any time (relaxed: it is a
// value of its own, guarding no other data).
extern std::atomic<uint32_t> el_time_scale;

// Dumps data to the type's dump file, then hands it to the callback unless
// the layer is switched off (0 then). Returns the callback's result.
int ves_split_output(struct ves_splitter* split, enum ves_type type, void* data, int len,
                     uint64_t pts);

// Enhancement-layer ticks to the caller's clock (layer.time_scale units per
// second). The tick count is taken as a signed 64-bit difference, so a
// picture before the anchor scales to a time before it; the double result
// is clamped to the int64 range before truncation, so every input has a
// defined result. Unscaled when the clocks are equal or el_time_scale is 0.
uint64_t ves_scale_ticks(const struct ves_layer_param& layer, uint64_t ticks);

// Base-layer IDR on layer L (base, or enhancement with the base layer off):
// anchors both layers on L's current access-unit time stamp.
void ves_bl_idr_step(struct ves_splitter* split, struct ves_layer_param& layer);

// One unwrapped enhancement-layer unit (from its start code): parses SPS and
// SEI, and times slices and IDRs into derived_pts.
void ves_el_step(struct ves_splitter* split, uint8_t* nal, int size, int prefix, int nal_type);
