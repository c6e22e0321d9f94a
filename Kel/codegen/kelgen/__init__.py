"""kelgen: turns a Kel schema into plain C++ (see cli.py)."""
