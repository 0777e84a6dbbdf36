# For those who type make: every target is a verb of ./dev.
VERBS := demo test bench table sets lint asan tsan build setup help
.PHONY: $(VERBS)
$(VERBS):
	@./dev $@
.DEFAULT_GOAL := help
