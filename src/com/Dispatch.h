#pragma once

/// Late-bound calls. A table of members is read once from the type library; arguments are matched and
/// converted here and not by the type information, which takes neither a script's variables for a byte array
/// nor a member that two interfaces have with different parameters.

#include "com/Automation.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "com/Values.h"

namespace ptzd::com {

struct Parameter {
  std::wstring Name;
  VARTYPE Type;
  bool Optional = false;
  OwnedVariant Default{};      ///< of `Type`; without one (missing) only where `Type` is VT_VARIANT
  std::wstring Enumeration{};  ///< the name of the enumeration, where the type is one
};

/// A function of an interface's virtual table.
struct Member {
  std::wstring Name;
  DISPID Id;
  INVOKEKIND Kind;
  std::size_t Offset;  ///< in the virtual table, in bytes
  std::vector<Parameter> Parameters;
  VARTYPE Result;  ///< VT_VOID for none
  std::wstring ResultEnumeration{};
};

struct InterfaceDescription {
  std::vector<Member> Members;
  ComPtr<ITypeInfo> Type;  ///< null for an interface that the type library does not hold
};

/// A member of a dispatch, as its type information tells of it.
struct DescribedMember {
  DISPID Id;
  const Member* Function;  ///< its name, kind and parameters
  std::size_t Needed;      ///< a call may end behind so many parameters
  VARTYPE Result;
};

/// The members of one interface, or of several under one roof. The first interface's members keep their
/// DISPIDs; those of the others, whose DISPIDs collide, get numbers of their own, except the default member
/// and the enumerator. Where a name comes again, the first interface whose member can take a call's arguments
/// answers it. May be used from any thread.
class DispatchTable {
 public:
  explicit DispatchTable(std::vector<std::shared_ptr<const InterfaceDescription>> interfaces);

  /// Tells what the table answers. For a single interface it is the type library's, null where that does not
  /// hold it; for several it is made on first use. Raises the HRESULT.
  ComPtr<ITypeInfo> Type() const;

  HRESULT GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) const;

  /// Calls a member; `targets` are the objects' pointers to the table's interfaces, in the same order.
  HRESULT Invoke(const std::vector<IUnknown*>& targets, DISPID id, LCID locale, WORD flags,
                 const DISPPARAMS& arguments, VARIANT* result, EXCEPINFO* exception,
                 UINT* wrongArgument) const;

 private:
  struct Candidate {
    const Member* Function;
    std::size_t Interface;
  };
  struct Entry {
    DISPID Id;
    std::wstring Name;
    std::vector<std::wstring> ParameterNames;  ///< their positions are their DISPIDs
    std::vector<Candidate> Candidates;

    /// The candidate with the most parameters.
    const Member& Widest() const;
  };

  void Add(const Member& member, std::size_t interface, DISPID id);
  static HRESULT Match(const Entry& entry, const Member& member, const DISPPARAMS& arguments,
                       bool dropsMissing, std::vector<const VARIANT*>& matched, UINT* wrongArgument);
  static DescribedMember Describe(const Entry& entry);

  std::vector<std::shared_ptr<const InterfaceDescription>> Interfaces_;
  std::vector<Entry> Entries_;
  mutable std::mutex TypeMutex_;
  mutable ComPtr<ITypeInfo> Type_;
};

/// The table of these interfaces of the type library, made on first use and kept until `ForgetTables`. Raises
/// the HRESULT where the library cannot be read.
std::shared_ptr<const DispatchTable> TableOf(const std::vector<IID>& interfaces);
void ForgetTables();

}  // namespace ptzd::com
