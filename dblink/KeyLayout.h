#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/StateRow.h"

// The keys of the state the agent shares through the state database: one hash per element,
// key segments joined with '|', numbers in decimal, booleans as "true"/"false". Other
// processes read and write these keys directly, so every name here is part of the contract
// (docs/agent.md).
namespace DbLink {

inline constexpr char kSeparator = '|';

// Inputs: other processes write them, the agent reads them. The keys of the input tables are
// those of their descriptions (host/InputTables.h): "VPLS_PW_INTF_INFO|<pw>", ...,
// "VPLS_DECAP_CONFIG|restartDone"; the tables of the input keys are their first segments.
inline constexpr std::string_view kHwFecIdResponse = "L2_UCAST_HW_FEC_ID_RESPONSE";  // |<any>
inline constexpr std::string_view kAgentSync = "VPLS_AGENT_SYNC";                    // one hash

// Outputs: the agent writes them, other processes read them.
inline constexpr std::string_view kMplsDecapConfig = "MPLS_DECAP_CONFIG";
inline constexpr std::string_view kLabelToPwIntf = "LABEL_TO_PW_INTF";
inline constexpr std::string_view kDecapStatus = "VPLS_DECAP_STATUS";
inline constexpr std::string_view kEncapAdditionalId = "VPLS_ENCAP_ADDITIONAL_ID";
inline constexpr std::string_view kAdditionalData = "VPLS_ADDITIONAL_DATA";
inline constexpr std::string_view kLpoRequest = "LPO_REQUEST";
inline constexpr std::string_view kLpoResponse = "LPO_RESPONSE";
inline constexpr std::string_view kIntfToLpoKey = "INTF_TO_LPO_KEY";
inline constexpr std::string_view kEsemConfig = "ESEM_CONFIG";
inline constexpr std::string_view kTagPopPushApp = "TAG_POP_PUSH_APP";
inline constexpr std::string_view kEvecProfileRequest = "EVEC_PROFILE_REQUEST";
inline constexpr std::string_view kSmStatus = "VPLS_SM_STATUS";  // one hash
inline constexpr std::string_view kPwStatus = "VPLS_PW_STATUS";  // |<pw>
// The emulated chip's installed decap entries, kept as a chip keeps its tables.
inline constexpr std::string_view kChipDecapEntry = "CHIP_DECAP_ENTRY";
inline constexpr std::string_view kAgentStatus = "VPLS_AGENT_STATUS";  // one hash
inline constexpr std::string_view kLogStream = "VPLS_LOG";             // a stream
inline constexpr std::string_view kAgentLease = "VPLS_AGENT_LEASE";    // a string with expiry
// Per input key that holds bad input: VPLS_BAD_INPUT|<the input key>, field `problem`.
inline constexpr std::string_view kBadInput = "VPLS_BAD_INPUT";

// Fields of the singleton hashes.
inline constexpr std::string_view kTokenField = "token";
inline constexpr std::string_view kSyncField = "sync";
inline constexpr std::string_view kErrorsField = "errors";
inline constexpr std::string_view kLastErrorField = "lastError";
inline constexpr std::string_view kStatusField = "status";
inline constexpr std::string_view kCodeField = "code";
inline constexpr std::string_view kStateField = "state";
inline constexpr std::string_view kHeartbeatField = "heartbeat";
inline constexpr std::string_view kPidField = "pid";
inline constexpr std::string_view kVersionField = "version";
inline constexpr std::string_view kRefusedWritesField = "refusedWrites";
inline constexpr std::string_view kLastRefusalField = "lastRefusal";
inline constexpr std::string_view kProblemField = "problem";

// A hash as read or to be written: its fields and values in order.
using Fields = Host::Fields;

// Whether two hashes hold the same fields, in any order.
bool sameFields(Fields const& a, Fields const& b);

// The tables whose keys the agent writes, and reads at start-up and after every reconnection
// with those of the input tables.
inline constexpr std::array kOutputTables{
    kMplsDecapConfig,    kLabelToPwIntf, kDecapStatus,  kEncapAdditionalId, kAdditionalData,
    kLpoRequest,         kLpoResponse,   kIntfToLpoKey, kEsemConfig,        kTagPopPushApp,
    kEvecProfileRequest, kSmStatus,      kPwStatus,     kChipDecapEntry};

// Which table a key belongs to: its first segment when that names one of the agent's tables
// and the key has more segments or the table is a single hash; none otherwise.
std::optional<std::string_view> tableOf(std::string_view key);
// Whether the table is the first segment of an input table's keys: "VPLS_DECAP_LABEL",
// "VPLS_DECAP_CONFIG" (the table of two attributes' keys).
bool isInputTable(std::string_view table);
bool isOutputTable(std::string_view table);

// The prefixes of every key the agent writes and owns (its outputs, the pseudowire statuses,
// the bad-input keys and its status), none a prefix of another: another client's write of such
// a key is written again.
std::vector<std::string> ownKeyPrefixes();

// Joins segments with '|'.
std::string joinKey(std::initializer_list<std::string_view> segments);
// The key up to its first '|' (the whole key when it has none).
std::string_view firstSegment(std::string_view key);
// Splits a key at every '|' (an empty segment stays).
std::vector<std::string_view> splitKey(std::string_view key);

// The keyspace-notification channel patterns of every input key (and the barrier key) in
// database `db`, for PSUBSCRIBE: one per input table ("VPLS_DECAP_CONFIG|*" too, so that a key
// of that table that names no attribute is seen and said to be bad input); and the key a
// notification channel names.
std::vector<std::string> inputChannelPatterns(int db);
std::optional<std::string_view> keyOfChannel(std::string_view channel);

// Text forms, and their strict readings: plain decimal digits within [0, max]; exactly "true"
// or "false". Anything else reads as nothing.
std::string boolText(bool value);
std::string numberText(std::uint64_t value);
std::optional<std::uint64_t> readNumber(std::string_view text, std::uint64_t max);
std::optional<bool> readBool(std::string_view text);

}  // namespace DbLink
