// Fuzzes the generic text-form decoder (platform/Loom/TextForm.h) with arbitrary text, for the
// decap entry record and the key and value records of the agent's tables.
//
// Properties, for every record type: fromText either returns a value or raises
// DeserializationError (nothing else escapes, a range error included); a decoded value
// re-encodes to a text that decodes to an equal value, and that text is the canonical one
// (encoding the value again gives it back byte for byte).

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "Fab/VplsIntfKey.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "FuzzCheck.h"
#include "Hardware/EsemConfigKeyVpls.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/MplsDecapInfo.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/VlanAndVplsKey.h"
#include "Loom/Errors.h"
#include "Loom/TextForm.h"
#include "MarlTunnel/VplsDecapEntry.h"

namespace {

template <Loom::TextRecord T>
void checkRoundTrip(std::string_view text) {
  std::string const type(T::typeName);
  std::optional<T> decoded;
  try {
    decoded.emplace(Loom::fromText<T>(text));
  } catch (Loom::DeserializationError const&) {
    return;
  } catch (std::exception const& e) {
    Fuzz::fail(type + ": fromText raised something other than DeserializationError: " + e.what());
  }
  std::string const encoded = Loom::toText(*decoded);
  try {
    T const again = Loom::fromText<T>(encoded);
    Fuzz::require(again == *decoded, type + ": " + encoded + " decodes to another value");
    Fuzz::require(Loom::toText(again) == encoded, type + ": " + encoded + " is not canonical");
  } catch (std::exception const& e) {
    Fuzz::fail(type + ": the encoding " + encoded +
               " of a decoded value does not decode: " + e.what());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  checkRoundTrip<Hardware::MarlTunnel::VplsDecapEntry>(text);
  checkRoundTrip<Fab::VplsPwIntfVlanKey>(text);
  checkRoundTrip<Fab::VplsIntfKey>(text);
  checkRoundTrip<Fab::VplsPwIntfInfo>(text);
  checkRoundTrip<Hardware::MarlTunnel::LifProfileOrientationKey>(text);
  checkRoundTrip<Hardware::MarlTunnel::VlanAndVplsKey>(text);
  checkRoundTrip<Hardware::MarlTunnel::MplsDecapInfoKey>(text);
  checkRoundTrip<Hardware::MarlTunnel::MplsDecapInfo>(text);
  checkRoundTrip<Hardware::MarlTunnel::EsemConfigKeyVpls>(text);
  return 0;
}
