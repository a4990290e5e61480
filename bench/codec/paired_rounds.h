// The codec's cost over the baseline's, measured in pairs of rounds: one round of each side, the
// order swapped from pair to pair, a ratio per pair and the median of those ratios. A load from
// elsewhere on the shared machine stretches a round or two; it moves the median hardly at all,
// where it moved a ratio of two separately measured medians by up to a third.
#ifndef PAIRED_ROUNDS_H
#define PAIRED_ROUNDS_H

using Call = void (*)();

// Prints "metric <label>_codec/baseline <median ratio of thread CPU time>" with the ratios'
// quartiles and each side's time per call; then, when the machine has a hardware instruction
// counter, "metric <label>_instructions_codec/baseline" likewise, or a line saying there is none.
void PrintPairedRatio(const char* label, Call codec, Call baseline, int pairs);

#endif
