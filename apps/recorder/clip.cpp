#include "clip.h"

// The assembler puts the file's bytes into this object; the build passes its path and rebuilds when it changes.
asm(".pushsection .rodata\n"
    ".hidden recorder_clip_begin\n"
    ".hidden recorder_clip_end\n"
    ".globl recorder_clip_begin\n"
    ".globl recorder_clip_end\n"
    "recorder_clip_begin:\n"
    ".incbin \"" RECORDER_CLIP "\"\n"
    "recorder_clip_end:\n"
    ".byte 0\n"
    ".popsection\n");

extern "C"
{
  extern const uint8_t recorder_clip_begin[] __attribute__((visibility("hidden")));
  extern const uint8_t recorder_clip_end[] __attribute__((visibility("hidden")));
}

Clip builtin_clip()
{
  return {recorder_clip_begin, static_cast<size_t>(recorder_clip_end - recorder_clip_begin)};
}
