# Calls of the platform that tests/support/replaced_calls.cpp replaces at link time.  A SocketHandle is an
# int, a long or a long long (i, l, x), whichever has the size of a pointer.
if(NOT WIN32)
  set(handle l)
elseif(ZVQRN_MACHINE STREQUAL "x64")
  set(handle x)
else()
  set(handle i)
endif()
set(replaced_calls
  _ZN5zvqrn8platform10IsLeadByteEc
  _ZN5zvqrn8platform16FirstHostAddressEPKcPj
  _ZN5zvqrn8platform11StartThreadEPFvPvES1_NS0_9StackKindE
  _ZN5zvqrn8platform21MonotonicMillisecondsEv
  _ZN5zvqrn8platform12WaitReadableE${handle}i
  _ZN5zvqrn8platform9JoinGroupE${handle}jPNS0_15GroupMembershipE
  _ZN5zvqrn8platform12WaitWritableE${handle}i
  _ZN5zvqrn8platform15PeerMayHaveGoneE${handle}
  _ZN5zvqrn8platform16AcceptConnectionE${handle}
  _ZN5zvqrn8platform19WaitReadableOrWokenE${handle}PNS0_5WakerEi
  _ZN5zvqrn8platform9SendBytesE${handle}PKvi)
