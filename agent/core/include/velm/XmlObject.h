#pragma once

#include <vector>

#include <wx/list.h>
#include <wx/string.h>

#include "velm/Export.h"
#include "velm/SecureString.h"

class wxOutputStream;
class wxTextOutputStream;
class wxXmlNode;
struct lua_State;

// Elements of the policy: objects that read themselves from XML, write themselves, and can appear
// as a Lua table. An object is used by one thread at a time while it is filled.
namespace VelmCore {

class XMLObject;

// What an attribute is bound to.
enum _PrimitiveType { PrimitiveString, PrimitiveSecureString, PrimitiveBool, PrimitiveInt };

// A wx list of XMLObject*, in document order. Does not own its members.
WX_DECLARE_LIST_WITH_DECL(XMLObject, XMLObjectChildren, class VELM_API);

// One element: attributes bound to members, and child objects. A derived class registers both in
// its constructor, in the order in which they are written.
//
// Reading: the object is put to its defaults first. An absent attribute keeps its default, an
// unknown attribute or child element goes to a hook and is ignored by default. Text between
// elements is ignored. An error leaves the object at its defaults, with the reason in ParseError().
// Errors are: what ParseXml refuses, another element name, a number outside 32 bits or with
// anything but an optional minus sign and decimal digits, a boolean other than "true", "1",
// "false", "0", a child element that stands twice where one is bound, and a hook's refusal.
//
// Writing: UTF-8, each element on a line of its own, two blanks a level. Every attribute is written
// that is not null, whether or not it has its default value, as name="value" with & < > " and tab,
// line feed and carriage return escaped; characters that XML cannot carry become U+FFFD. What was
// written reads back as the same object, and writes as the same bytes again.
//
// Hooks that return int: 0 refuses, and reading ends with an error; anything else goes on.
class VELM_API XMLObject {
public:
    // `ownsChildren`: DeleteChildren and the destructor delete the child objects. The second flag
    // is reserved; callers pass the opposite of the first.
    XMLObject(bool ownsChildren, bool reserved);
    XMLObject(const XMLObject&) = delete;
    XMLObject& operator=(const XMLObject&) = delete;
    virtual ~XMLObject();

    // Adds a child object, which is read and written along with this one.
    virtual void AddChild(XMLObject* child);
    // Calls `callback(this, name, type, member, context)` for each attribute that is not null, in
    // order, while it returns true. False if it ended the walk. `member` points to a value of
    // `type`.
    virtual bool EnumAttributes(bool (*callback)(const XMLObject*, const wchar_t*, _PrimitiveType,
                                                 const void*, void*),
                                void* context) const;
    // The same with `callback(this, child, context)` for the child objects.
    virtual bool EnumChildObjects(bool (*callback)(const XMLObject*, const XMLObject*, void*),
                                  void* context) const;
    // Empty for a class that is only a base.
    virtual const wchar_t* GetElementName() const;
    virtual bool HasChildElements() const;
    virtual bool IsCollection() const;
    // Writes ` name="value"` for each attribute. The flag is reserved; callers pass false.
    virtual void PrintAttributes(wxTextOutputStream& stream, bool reserved) const;
    // `indent` is the children's level.
    virtual void PrintChildElements(wxTextOutputStream& stream, unsigned int indent) const;
    // Puts attributes, null marks and child objects to their defaults and empties collections.
    virtual void SetToDefaults();
    // Pushes one table: attributes by name, each child object as a table under its element name;
    // for a collection the array of its elements instead. Null attributes and secrets
    // (wxSecureString) are left out. Raises a Lua error when memory or stack runs out, with nothing
    // pushed before and nothing leaked; the caller then has no destructors pending. May throw
    // std::bad_alloc.
    virtual void toLua(lua_State* L) const;
    // `indent` is this element's level. `withDeclaration` begins with an XML declaration. Whether
    // it could be written, the stream tells.
    virtual void ToXML(wxOutputStream& stream, unsigned int indent, bool withDeclaration);
    virtual void ToXML(wxTextOutputStream& stream, unsigned int indent, bool withDeclaration);
    // Called before the element is written.
    virtual void BeforePrint();
    // Empties the collections at and below this object.
    virtual void DeleteChildren();
    virtual bool ElementNameMatches(const wxString& name);
    // Called when the element's attributes have all been read.
    virtual int EndAttributes();
    // Called when the element has been read to its end.
    virtual int EndElement();
    // The object that reads the child element of that name, null if there is none. A collection
    // adds a new element to itself.
    virtual XMLObject* FindChildElement(const wxString& name);
    virtual int OnUnhandledAttribute(const wxString& name, const wxString& value);
    virtual int OnUnhandledChildElement(const wxString& name);
    // Takes the attribute's text as it stands in XML, unescaped. 0 if the value does not fit.
    virtual int SetAttribute(const wxString& name, const wxString& value);

    // Parses one element, with or without an XML declaration. 0 means success. `reserved` is null.
    int FromXML(const wxString& xml, const char* reserved);
    // The same from a parsed element. 0 means success.
    int ReadFromNode(const wxXmlNode& node);
    // True if the element was read to its end by the last read, and nothing has reset it since.
    bool ParseComplete() const { return m_ParseComplete; }
    // Why the last read failed, naming element and attribute but no value; empty if it did not.
    const wxString& ParseError() const { return m_ParseError; }

    // Makes this object a copy of `other`: values, null marks, child objects and the parse-complete
    // mark. A child of a collection that the collection cannot make itself is left out. False, with
    // nothing changed, if the two are of different classes.
    bool CopyFrom(const XMLObject& other);

    // Bind an attribute to a member, and put the member to the default. The name is a literal; the
    // member lives as long as the object. `startsNull`: the attribute is null until it is set or
    // read.
    void AddAttribute(const wchar_t* name, wxString* member, bool startsNull);
    void AddAttribute(const wchar_t* name, wxSecureString* member);
    void AddAttribute(const wchar_t* name, bool* member, bool startsNull);
    // Without a default: the member is 0 and the attribute is null until it is set or read.
    void AddAttribute(const wchar_t* name, int* member);
    void AddAttribute(const wchar_t* name, int* member, int defaultValue, bool startsNull);
    // Marks the attribute of `member` as absent or as present. An absent one is not written.
    void SetAttributeNull(const void* member, bool value);
    bool IsAttributeNull(const void* member) const;

protected:
    XMLObjectChildren m_Children;

private:
    struct Attribute {
        const wchar_t* name;
        _PrimitiveType type;
        void* member;
        int defaultValue;  // of a number
        bool startsNull;
        bool isNull;
    };

    void Bind(const Attribute& attribute);
    Attribute* FindAttribute(const wxString& name);
    static void SetToDefault(Attribute& attribute);
    static void CopyAttribute(Attribute& to, const Attribute& from);
    static bool Assign(const Attribute& attribute, const wxString& value);

    bool ReadElement(const wxXmlNode& node, wxString& reason);
    bool ReadAttributes(const wxXmlNode& node, wxString& reason);
    bool ReadChildren(const wxXmlNode& node, wxString& reason);
    bool ReadChild(const wxXmlNode& node, wxString& reason);
    wxString WhyRefused(const wxString& attributeName);

    const bool m_OwnsChildren;
    bool m_ParseComplete = false;
    wxString m_ParseError;
    std::vector<Attribute> m_Attributes;
};

// A collection of like elements, which it owns.
class VELM_API XMLObjectList : public XMLObject {
public:
    XMLObjectList(bool ownsChildren, bool reserved);

    bool IsCollection() const override;
    void SetToDefaults() override;
    void DeleteChildren() override;
    XMLObject* FindChildElement(const wxString& name) override;

    // The name of the elements.
    virtual const wchar_t* ChildElementName() const = 0;
    // A new element at its defaults. The caller adds it to the list or deletes it.
    virtual XMLObject* CreateListElement() const = 0;
    using XMLObject::ToXML;
    virtual void ToXML(wxTextOutputStream& stream, unsigned int indent);

    // The elements, in document order. They stay the list's.
    XMLObjectChildren& Children() { return m_Children; }
    const XMLObjectChildren& Children() const { return m_Children; }
};

// An element with a number, attribute "id", 0 by default. The flag is XMLObject's second.
class VELM_API CIdObject : public XMLObject {
public:
    explicit CIdObject(bool reserved);

    int m_Id = 0;
};

// Adds the attribute "name".
class VELM_API CIdNameObject : public CIdObject {
public:
    explicit CIdNameObject(bool reserved);

    wxString m_Name;
};

// Adds the attribute "description".
class VELM_API CIdNameDescObject : public CIdNameObject {
public:
    CIdNameDescObject();

    wxString m_Description;
};

}  // namespace VelmCore
