// TCP between two sockets of the simulated network.
#pragma once

#include "network/network.h"

namespace zvqrn::simulation {

// Sends what a stream has to send and may send now.
void Transmit(Socket* socket);

// Room for bytes of its owner's.
std::int64_t RoomToSend(const Socket& socket);

// Asks for a connection; the socket is told (Notify) when that has been decided.
void AskForConnection(Socket* socket, const platform::Endpoint& to);

// The owner has read: the peer may send more.
void TellOfRoom(Socket* socket);

// The owner closes: an end behind what is still to be sent, or a reset when something is unread.
void CloseStream(Socket* socket);
void CloseListening(Socket* socket);

}  // namespace zvqrn::simulation
