#pragma once

#include <devcomm/disk_command.h>

constexpr unsigned int senseBytes = 32;

/// What the sense data of a pass-through command tell.
enum class Sense
{
  Registers, ///< the disk's registers
  Doubtful,  ///< registers that need not be the disk's last word
  Missing,   ///< no registers, and no failure
  Failed,    ///< no registers; the disk failed the command
  Refused    ///< no registers; the command did not get to the disk
};

/// Reads the registers of the disk out of sense data in descriptor format (SAT, ATA Status Return descriptor).
///
/// @param tf  receives them; left alone without registers. Its is_lba48 tells whether there are high-order bytes
Sense read_sense(const unsigned char (&sense)[senseBytes], ata_tf* tf);
