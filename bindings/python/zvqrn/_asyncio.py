"""The service for asyncio: its callbacks run on the event loop, as coroutines or plain functions."""

import asyncio
import concurrent.futures
import inspect
from types import TracebackType
from typing import Any, Awaitable, Callable, Coroutine, Optional, Set, Type, Union

from ._errors import Error, InsideCallback
from ._records import Answer, Peer, Request, Status
from ._service import Service, ending


class AsyncService:
    """A Service whose callbacks run on the event loop that starts it; see Service for what they get.

    Several requests can be with on_request at once, each in a task of its own.  A callback whose task
    is cancelled, as at the end of asyncio.run(), counts as one that raised.
    """

    def __init__(
        self,
        *,
        on_request: Callable[[Request], Union[Answer, Awaitable[Answer]]],
        accept_scanner: Optional[Callable[[Peer], Union[bool, Awaitable[bool]]]] = None,
        on_status: Optional[Callable[[Status], object]] = None,
        name: Optional[str] = None,
    ) -> None:
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._callbacks: Set["asyncio.Task[Any]"] = set()
        self._service = Service(
            on_request=self._on_loop(on_request),
            accept_scanner=accept_scanner and self._on_loop(accept_scanner),
            on_status=on_status and self._on_loop(on_status),
            name=name,
        )

    async def start(self) -> None:
        """Starts the service.  It may wait for this PC to get an address first; see `serving`."""
        self._refuse_inside_callback("start")
        self._loop = asyncio.get_running_loop()
        try:
            await asyncio.wrap_future(self._service.begin_start())
        except asyncio.CancelledError:
            await self.stop()
            raise

    async def stop(self) -> None:
        """Stops the service, when it runs; returns once no callback runs or will come."""
        self._refuse_inside_callback("stop")
        self._service.begin_stop()
        await self.wait()

    async def wait(self) -> None:
        """Waits until the service has been stopped."""
        await asyncio.wrap_future(self._service.ended)

    @property
    def serving(self) -> bool:
        """Whether scanners are served now; False also while the service waits for an address."""
        return self._service.serving

    @property
    def name(self) -> str:
        """The name under which scanners list this PC.  One that is set stays for later starts, too."""
        return self._service.name

    @name.setter
    def name(self, name: str) -> None:
        self._service.name = name

    async def __aenter__(self) -> "AsyncService":
        await self.start()
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        await self.stop()

    def _refuse_inside_callback(self, what: str) -> None:
        if asyncio.current_task() in self._callbacks:
            raise InsideCallback(
                f"{what}() would wait for the callback that awaits it: let another task do it"
            )

    def _on_loop(self, callback: Any) -> Any:
        """The callback for threads of the library: it runs on the loop while they wait."""
        if not callable(callback):
            return callback  # the service refuses it

        async def run(argument: Any) -> Any:
            task = asyncio.current_task()
            assert task is not None
            self._callbacks.add(task)
            try:
                result = callback(argument)
                return await result if inspect.isawaitable(result) else result
            finally:
                self._callbacks.discard(task)

        def call(argument: Any) -> Any:
            assert self._loop is not None
            coroutine: Coroutine[Any, Any, Any] = run(argument)
            try:
                future = asyncio.run_coroutine_threadsafe(coroutine, self._loop)
            except RuntimeError:
                coroutine.close()
                raise
            while not future.done():
                concurrent.futures.wait([future], timeout=1)
                if self._loop.is_closed() or ending.is_set():
                    raise Error("the event loop ended before its service was stopped")
            return future.result()

        return call
