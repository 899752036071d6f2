# Types of tavo_hdr.fleet (the implementation is fleet.py).
from typing import Any, Iterable, Iterator, Union

from . import Path

def replay_all(captures: Iterable[Path], client: Any, out_dir: Union[Path, None] = ...) -> Iterator[dict[str, Any]]: ...
