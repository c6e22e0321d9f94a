# Run as `python3 Kel/codegen/kelgen ...`: the package is imported from its parent folder.
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from kelgen.cli import main  # noqa: E402

sys.exit(main())
