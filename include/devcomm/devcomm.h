#pragma once

/// @file
/// The whole library in one include; each family's header can be included alone.

