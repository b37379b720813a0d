#pragma once

#include <cstddef>
#include <cstdint>

// Numbers of the set format, MTF 1.00a: see doc/set-format.md.

namespace MTF {

/// Format logical block, physical block and soft filemark alike: every block begins on a multiple of it.
constexpr size_t block_size = 1024;

/// A block's or stream's type: four characters as a little-endian number.
constexpr uint32_t type_code(const char (&text)[5]) {
  return static_cast<uint32_t>(static_cast<unsigned char>(text[0])) |
         static_cast<uint32_t>(static_cast<unsigned char>(text[1])) << 8 |
         static_cast<uint32_t>(static_cast<unsigned char>(text[2])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(text[3])) << 24;
}

// Descriptor blocks.
constexpr uint32_t block_tape = type_code("TAPE");
constexpr uint32_t block_sset = type_code("SSET");
constexpr uint32_t block_volb = type_code("VOLB");
constexpr uint32_t block_dirb = type_code("DIRB");
constexpr uint32_t block_file = type_code("FILE");
constexpr uint32_t block_cfil = type_code("CFIL");
constexpr uint32_t block_eset = type_code("ESET");
constexpr uint32_t block_sfmb = type_code("SFMB");

// Streams that the format knows.
constexpr uint32_t stream_data = type_code("STAN");
constexpr uint32_t stream_extent = type_code("SPAR");
constexpr uint32_t stream_path_name = type_code("PNAM");
constexpr uint32_t stream_file_name = type_code("FNAM");
constexpr uint32_t stream_checksum = type_code("CSUM");
constexpr uint32_t stream_corrupt = type_code("CRPT");
constexpr uint32_t stream_pad = type_code("SPAD");

// Streams of our own: what the format has no place for.
constexpr uint32_t stream_unix_stat = type_code("UXST");
constexpr uint32_t stream_unix_link = type_code("UXLN");
constexpr uint32_t stream_unix_hard_link = type_code("UXHL");
constexpr uint32_t stream_unix_xattrs = type_code("UXXA");
constexpr uint32_t stream_unix_name = type_code("UXNM");

// The common block header: offsets of its fields.
constexpr size_t header_size = 52;
constexpr size_t at_type = 0;
constexpr size_t at_attributes = 4;
constexpr size_t at_first_event = 8;
constexpr size_t at_os_id = 10;
constexpr size_t at_displayable_size = 12;
constexpr size_t at_logical_address = 20;
constexpr size_t at_control_block_id = 36;
constexpr size_t at_string_type = 48;
constexpr size_t at_header_checksum = 50;

// Where the fixed part of each block ends.
constexpr size_t tape_end = 94;
constexpr size_t sset_end = 98;
constexpr size_t volb_end = 73;
constexpr size_t dirb_end = 84;
constexpr size_t file_end = 88;
constexpr size_t cfil_end = 74;
constexpr size_t eset_end = 85;
constexpr size_t sfmb_end = 60;

constexpr uint8_t os_unix = 28;

enum String_Type : uint8_t { STR_NONE = 0, STR_BYTES = 1, STR_UTF16 = 2 };

// The stream header.
constexpr size_t stream_header_size = 22;
constexpr size_t stream_alignment = 4;
constexpr uint16_t stream_sparse = 1u << 3;       ///< file system attribute: the data is in SPAR streams
constexpr uint16_t stream_checksummed = 1u << 5;  ///< a CSUM stream follows

// Attributes of blocks, at offset 52.
constexpr uint32_t tape_soft_filemarks = 1u << 0;
constexpr uint32_t set_normal = 1u << 2;
constexpr uint32_t set_incremental = 1u << 4;
constexpr uint32_t volume_os_specific = 1u << 4;
constexpr uint32_t name_in_stream = 1u << 17;
constexpr uint32_t damage_length_changed = 1u << 16;
constexpr uint32_t damage_unreadable = 1u << 17;

}  // namespace MTF
