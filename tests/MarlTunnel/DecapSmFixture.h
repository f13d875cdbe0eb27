#pragma once

#include <gtest/gtest.h>

#include "DecapSmRig.h"

namespace Hardware::MarlTunnel::test {

class DecapSmFixture : public ::testing::Test, public DecapSmRig {};

}  // namespace Hardware::MarlTunnel::test
