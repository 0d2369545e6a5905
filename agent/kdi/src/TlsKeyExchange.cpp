#include "TlsKeyExchange.h"

#include <algorithm>
#include <iterator>

namespace Kdi {

namespace {

// A run of suites, from the one behind the last run's to this one.
struct Run {
    uint16_t last;
    KeyExchange keyExchange;
};

using K = KeyExchange;

// In the order of the registered numbers.
constexpr Run RUNS[] = {
    {0x0000, K::Unknown},     {0x0002, K::Rsa},
    {0x0003, K::RsaExport},   {0x0005, K::Rsa},
    {0x0006, K::RsaExport},   {0x0007, K::Rsa},
    {0x0008, K::RsaExport},   {0x000A, K::Rsa},
    {0x0010, K::Dh},          {0x0016, K::Dhe},
    {0x001B, K::DhAnonymous}, {0x001D, K::Unknown},
    {0x002B, K::Kerberos},    {0x002C, K::Psk},
    {0x002D, K::DhePsk},      {0x002E, K::RsaPsk},
    {0x002F, K::Rsa},         {0x0031, K::Dh},
    {0x0033, K::Dhe},         {0x0034, K::DhAnonymous},
    {0x0035, K::Rsa},         {0x0037, K::Dh},
    {0x0039, K::Dhe},         {0x003A, K::DhAnonymous},
    {0x003D, K::Rsa},         {0x003F, K::Dh},
    {0x0040, K::Dhe},         {0x0041, K::Rsa},
    {0x0043, K::Dh},          {0x0045, K::Dhe},
    {0x0046, K::DhAnonymous}, {0x005F, K::Unknown},
    {0x0062, K::RsaExport},   {0x0063, K::Dhe},
    {0x0064, K::RsaExport},   {0x0067, K::Dhe},
    {0x0069, K::Dh},          {0x006B, K::Dhe},
    {0x006D, K::DhAnonymous}, {0x0083, K::Unknown},
    {0x0084, K::Rsa},         {0x0086, K::Dh},
    {0x0088, K::Dhe},         {0x0089, K::DhAnonymous},
    {0x008D, K::Psk},         {0x0091, K::DhePsk},
    {0x0095, K::RsaPsk},      {0x0096, K::Rsa},
    {0x0098, K::Dh},          {0x009A, K::Dhe},
    {0x009B, K::DhAnonymous}, {0x009D, K::Rsa},
    {0x009F, K::Dhe},         {0x00A1, K::Dh},
    {0x00A3, K::Dhe},         {0x00A5, K::Dh},
    {0x00A7, K::DhAnonymous}, {0x00A9, K::Psk},
    {0x00AB, K::DhePsk},      {0x00AD, K::RsaPsk},
    {0x00B1, K::Psk},         {0x00B5, K::DhePsk},
    {0x00B9, K::RsaPsk},      {0x00BA, K::Rsa},
    {0x00BC, K::Dh},          {0x00BE, K::Dhe},
    {0x00BF, K::DhAnonymous}, {0x00C0, K::Rsa},
    {0x00C2, K::Dh},          {0x00C4, K::Dhe},
    {0x00C5, K::DhAnonymous}, {0x00C7, K::Tls13},
    {0x1300, K::Unknown},     {0x13FF, K::Tls13},
    {0xC000, K::Unknown},     {0xC005, K::Ecdh},
    {0xC00A, K::Ecdhe},       {0xC00F, K::Ecdh},
    {0xC014, K::Ecdhe},       {0xC019, K::EcdhAnonymous},
    {0xC022, K::Srp},         {0xC024, K::Ecdhe},
    {0xC026, K::Ecdh},        {0xC028, K::Ecdhe},
    {0xC02A, K::Ecdh},        {0xC02C, K::Ecdhe},
    {0xC02E, K::Ecdh},        {0xC030, K::Ecdhe},
    {0xC032, K::Ecdh},        {0xC03B, K::EcdhePsk},
    {0xC03D, K::Rsa},         {0xC041, K::Dh},
    {0xC045, K::Dhe},         {0xC047, K::DhAnonymous},
    {0xC049, K::Ecdhe},       {0xC04B, K::Ecdh},
    {0xC04D, K::Ecdhe},       {0xC04F, K::Ecdh},
    {0xC051, K::Rsa},         {0xC053, K::Dhe},
    {0xC055, K::Dh},          {0xC057, K::Dhe},
    {0xC059, K::Dh},          {0xC05B, K::DhAnonymous},
    {0xC05D, K::Ecdhe},       {0xC05F, K::Ecdh},
    {0xC061, K::Ecdhe},       {0xC063, K::Ecdh},
    {0xC065, K::Psk},         {0xC067, K::DhePsk},
    {0xC069, K::RsaPsk},      {0xC06B, K::Psk},
    {0xC06D, K::DhePsk},      {0xC06F, K::RsaPsk},
    {0xC071, K::EcdhePsk},    {0xC073, K::Ecdhe},
    {0xC075, K::Ecdh},        {0xC077, K::Ecdhe},
    {0xC079, K::Ecdh},        {0xC07B, K::Rsa},
    {0xC07D, K::Dhe},         {0xC07F, K::Dh},
    {0xC081, K::Dhe},         {0xC083, K::Dh},
    {0xC085, K::DhAnonymous}, {0xC087, K::Ecdhe},
    {0xC089, K::Ecdh},        {0xC08B, K::Ecdhe},
    {0xC08D, K::Ecdh},        {0xC08F, K::Psk},
    {0xC091, K::DhePsk},      {0xC093, K::RsaPsk},
    {0xC095, K::Psk},         {0xC097, K::DhePsk},
    {0xC099, K::RsaPsk},      {0xC09B, K::EcdhePsk},
    {0xC09D, K::Rsa},         {0xC09F, K::Dhe},
    {0xC0A1, K::Rsa},         {0xC0A3, K::Dhe},
    {0xC0A5, K::Psk},         {0xC0A7, K::DhePsk},
    {0xC0A9, K::Psk},         {0xC0AB, K::DhePsk},
    {0xC0AF, K::Ecdhe},       {0xCC12, K::Unknown},
    {0xCC14, K::Ecdhe},       {0xCC15, K::Dhe},
    {0xCCA7, K::Unknown},     {0xCCA9, K::Ecdhe},
    {0xCCAA, K::Dhe},         {0xCCAB, K::Psk},
    {0xCCAC, K::EcdhePsk},    {0xCCAD, K::DhePsk},
    {0xCCAE, K::RsaPsk},      {0xD000, K::Unknown},
    {0xD005, K::EcdhePsk},    {0xFEFD, K::Unknown},
    {0xFEFF, K::Rsa},         {0xFFFF, K::Unknown},
};

}  // namespace

const char* NameOf(KeyExchange keyExchange) {
    static constexpr const char* NAMES[KEY_EXCHANGE_COUNT] = {
        "RSA",       "RSA_EXPORT", "RSA_PSK",   "DH",   "DH_anon", "DHE", "DHE_PSK", "ECDH",
        "ECDH_anon", "ECDHE",      "ECDHE_PSK", "KRB5", "PSK",     "SRP", "TLS 1.3", "unknown"};
    return NAMES[static_cast<unsigned int>(keyExchange)];
}

KeyExchange KeyExchangeOf(uint16_t cipherSuite) {
    const auto before = [](const Run& run, uint16_t suite) { return run.last < suite; };
    return std::lower_bound(std::begin(RUNS), std::end(RUNS), cipherSuite, before)->keyExchange;
}

}  // namespace Kdi
