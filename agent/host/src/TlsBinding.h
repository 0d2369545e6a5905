#pragma once

#include <lua.hpp>

// Registers the type of TLS sources.
void RegisterTls(lua_State* L);

// kdi.OpenTls(source, options): `source` is "pcap:FILE" or "interface:NAME"; `options.servers` an
// array of {address=, port=, hostConfiguration=}, `options.keyLog` a file's name or nil,
// `options.answerTimeout` how many milliseconds may go without any answer, or nil. Returns a
// TLS source, which reads on a thread of its own until Close or the end of the capture, or nil and
// a text. Its methods: Wait(msec) gives true at the end, false at the time-out, or nil and a text
// when the source cannot be read any more; Statistics() a table; Close().
int OpenTls(lua_State* L);
