"""What bench/compare, bench/growth and bench/absolute share. The standard library alone."""
