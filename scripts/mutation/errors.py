class MutationError(Exception):
    """Prevents the run. The text says why and, where possible, what to do next."""
