#pragma once

#include <lua.hpp>

// How an object of a script class is recorded in a userdata, shared by the program's bindings and
// by its plug-ins. Needs the Lua headers; the symbols come from the program.
//
// - A class's metatable stands in the registry under the class's full name ("SLB.Dom"), with
//   `__index` (the class table), `__class` (the full name) and `__gc`.
// - A dotted name is a path of nested tables from the global table down to the class table.
// - A class table has a metatable of its own; its `__call` is the constructor, if there is one, and
//   its array part names the classes that it derives from.
// - An object's userdata begins with a ScriptObject, whose pointer serves for every class that the
//   object's class derives from as well: native classes derive singly, so the addresses are equal.
namespace VelmCore {

struct ScriptObject {
    void* object;  // null once the object is gone
    bool isConst;  // a reference that must not be used for a call
};

}  // namespace VelmCore
