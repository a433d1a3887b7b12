// Begins a life's semaphores, events and notifiers anew.
#pragma once

namespace zvqrn::simulation {

void BeginSeam();

}  // namespace zvqrn::simulation
