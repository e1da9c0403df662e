target_sources(orvel_test_support PRIVATE support/GLContext.cpp support/RecordingHost.cpp)

