#include "stream_rate.h"

#include <initializer_list>

namespace
{

// Reads a NAL unit's payload bit by bit, leaving out emulation prevention bytes. Past the end it yields zeros and
// says so in failed().
class BitReader
{
public:
  BitReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint32_t bits(int count)
  {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i)
      value = value << 1 | bit();
    return value;
  }

  bool flag()
  {
    return bit() != 0;
  }

  // ue(v): as many zeros, a one, and as many bits.
  uint32_t golomb()
  {
    int zeros = 0;
    while (zeros < 32 && bit() == 0)
      ++zeros;
    if (zeros == 32)
      failed_ = true;
    return failed_ ? 0 : ((uint32_t{1} << zeros) - 1) + bits(zeros);
  }

  // se(v)
  int32_t signed_golomb()
  {
    const uint32_t code = golomb();
    const auto half = static_cast<int32_t>(code / 2 + code % 2);
    return code % 2 != 0 ? half : -half;
  }

  bool failed() const
  {
    return failed_;
  }

private:
  uint32_t bit()
  {
    if (left_ == 0 && !load())
    {
      failed_ = true;
      return 0;
    }
    --left_;
    return static_cast<uint32_t>(byte_ >> left_) & 1U;
  }

  bool load()
  {
    if (zeros_ >= 2 && at_ < size_ && data_[at_] == 3)
    {
      ++at_;
      zeros_ = 0;
    }
    if (at_ >= size_)
      return false;
    byte_ = data_[at_++];
    zeros_ = byte_ == 0 ? zeros_ + 1 : 0;
    left_ = 8;
    return true;
  }

  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
  int zeros_ = 0;
  uint8_t byte_ = 0;
  int left_ = 0;
  bool failed_ = false;
};

bool has_chroma_format(uint32_t profile)
{
  for (uint32_t known : {100U, 110U, 122U, 244U, 44U, 83U, 86U, 118U, 128U, 138U, 139U, 134U, 135U})
    if (profile == known)
      return true;
  return false;
}

void skip_scaling_list(BitReader& in, int size)
{
  int last = 8;
  int next = 8;
  for (int i = 0; i < size; ++i)
  {
    if (next != 0)
      next = (last + in.signed_golomb() % 256 + 512) % 256;
    last = next == 0 ? last : next;
  }
}

void skip_chroma_format(BitReader& in)
{
  const uint32_t format = in.golomb();
  if (format == 3)
    in.flag(); // separate_colour_plane_flag
  in.golomb(); // bit_depth_luma_minus8
  in.golomb(); // bit_depth_chroma_minus8
  in.flag();   // qpprime_y_zero_transform_bypass_flag
  if (!in.flag())
    return;
  const int lists = format == 3 ? 12 : 8;
  for (int i = 0; i < lists; ++i)
    if (in.flag())
      skip_scaling_list(in, i < 6 ? 16 : 64);
}

void skip_picture_order(BitReader& in)
{
  const uint32_t type = in.golomb();
  if (type == 0)
    in.golomb(); // log2_max_pic_order_cnt_lsb_minus4
  if (type != 1)
    return;
  in.flag();          // delta_pic_order_always_zero_flag
  in.signed_golomb(); // offset_for_non_ref_pic
  in.signed_golomb(); // offset_for_top_to_bottom_field
  const uint32_t cycle = in.golomb();
  for (uint32_t i = 0; i < cycle && !in.failed(); ++i)
    in.signed_golomb();
}

void skip_picture_size(BitReader& in)
{
  in.golomb(); // max_num_ref_frames
  in.flag();   // gaps_in_frame_num_value_allowed_flag
  in.golomb(); // pic_width_in_mbs_minus1
  in.golomb(); // pic_height_in_map_units_minus1
  if (!in.flag())
    in.flag(); // mb_adaptive_frame_field_flag, only without frame_mbs_only_flag
  in.flag();   // direct_8x8_inference_flag
  if (in.flag())
    for (int edge = 0; edge < 4; ++edge)
      in.golomb(); // frame_crop_*_offset
}

void skip_to_timing(BitReader& in)
{
  constexpr uint32_t kExtendedAspect = 255;
  if (in.flag() && in.bits(8) == kExtendedAspect)
    in.bits(32); // sar_width, sar_height
  if (in.flag())
    in.flag(); // overscan_appropriate_flag
  if (in.flag())
  {
    in.bits(4); // video_format, video_full_range_flag
    if (in.flag())
      in.bits(24); // colour_primaries, transfer_characteristics, matrix_coefficients
  }
  if (in.flag())
  {
    in.golomb(); // chroma_sample_loc_type_top_field
    in.golomb(); // chroma_sample_loc_type_bottom_field
  }
}

} // namespace

int64_t frame_interval_us(const uint8_t* nal, size_t size)
{
  if (size < 1)
    return 0;
  BitReader in(nal + 1, size - 1);
  const uint32_t profile = in.bits(8);
  in.bits(16); // constraint flags, level_idc
  in.golomb(); // seq_parameter_set_id
  if (has_chroma_format(profile))
    skip_chroma_format(in);
  in.golomb(); // log2_max_frame_num_minus4
  skip_picture_order(in);
  skip_picture_size(in);
  if (!in.flag()) // vui_parameters_present_flag
    return 0;
  skip_to_timing(in);
  if (!in.flag()) // timing_info_present_flag
    return 0;
  // Ticks are field periods: two of them make a frame.
  const uint64_t tick = in.bits(32);
  const uint64_t ticksPerSecond = in.bits(32);
  if (in.failed() || ticksPerSecond == 0)
    return 0;
  const uint64_t interval = 2 * tick * 1000000 / ticksPerSecond;
  return interval >= 1000 && interval <= 1000000 ? static_cast<int64_t>(interval) : 0;
}
