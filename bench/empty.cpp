// Nothing: what loading it costs, loading any shared object costs.
